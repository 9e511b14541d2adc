// What is behind every call of a client. A client asks in one of two ways: with a JSON text that is answered by one, or
// directly, where a value goes back by a callback into the client while its call runs. One instance serves one client
// context; it has no state, and any number of calls may run on it at once. What they do is kept apart by the job lock,
// for which a call waits 60 seconds and is then dropped.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/json.h"

namespace zorvalis {

// The numbers of the functions, in calls as in callbacks.
enum ServiceFunction : std::int32_t {
    kGetModelName = 0,
    kGetSerialNumber = 1,
    kGetFamilyName = 2,
    kGetBatteryHealthMode = 3,
    kGetQuietFanMode = 4,
    kGetSystemInfoData = 5,
    kSetBatteryHealth = 6,
    kSetQuietFan = 7,
    kSetAppFolder = 8,
    kGetVersionString = 9,
    kSetMainSwitchByUser = 10,
    kGetMainSwitchByUser = 11,
    kGetChassisTypes = 12,
    kGetProductName = 13,
    kCollectQuietFan = 14,
    kCollectBatteryHealth = 15,
    kGetUUID = 16,
    kSetMyZorvPP = 17,
    kGetWiFiCardName = 18,
};

class SystemInfoClass {
public:
    // The answer to `input` in `output`, which has room for `outputSize` characters; empty when there is none or when
    // it does not fit. Raises what the dispatcher raises.
    void BigDataServiceCall(const wchar_t* input, wchar_t* output, std::int32_t outputSize);

    // Empty when no answer could be made. A call with members of the wrong type raises, and leaves with the job lock
    // held: from then on only its thread is served.
    std::string BigDataServiceCallDispatcher(std::wstring input);

    // Runs a getter and delivers its value by callback; without the job lock there is no callback.
    void SystemInfoDispatcher(std::int32_t function, std::int64_t cookie);

    void GetTestDataFunc(std::int64_t value, std::int64_t cookie);
    void GetModelName(std::int64_t cookie);
    void GetSerialNumber(std::int64_t cookie);
    void GetFamilyName(std::int64_t cookie);
    void GetChassisTypes(std::int64_t cookie);
    void GetProductName(std::int64_t cookie);
    void GetBatteryHealthMode(std::int64_t cookie);
    void GetQuietFanMode(std::int64_t cookie);
    void GetSystemInfoData(std::int64_t cookie);
    void GetMainSwitchByUser(std::int64_t cookie);
    void GetVersionString(std::int64_t cookie);
    void GetUUID(wchar_t* output, std::int32_t outputSize);

    // These change something, and take the job lock only through their jobs.
    void SetAppFolder(const wchar_t* path, std::int64_t cookie);
    void SetBatteryHealth(std::int64_t value, std::int64_t cookie);
    void SetQuietFan(bool on, std::int64_t cookie);
    void SetMainSwitchByUser(bool on, std::int64_t cookie);
    // `result` is 1 when the consent was recorded. Only an agreement is.
    void SetMyZorvPP(const wchar_t* windowsAccount, const wchar_t* appName, const wchar_t* appVersion,
                     const wchar_t* timeText, bool isAgreePP, std::int32_t* result);

    // The text of one of the seven functions behind the system information; empty for any other name.
    std::wstring ReadFromDllFunction(const std::string& name);
    Json RetriveSystemInfoJson();

private:
    // How a function of the JSON way ended, and the text that goes with it.
    struct Outcome {
        bool success;
        std::string parameter;
    };
    using Parameters = std::map<std::string, std::string>;

    std::string AnswerCall(const std::string& input);
    Outcome TestAndRun(std::int32_t function, std::int32_t version, const Json& call);
    Outcome Run(std::int32_t function, Parameters parameters);

    // The values, as both ways deliver them: narrow text, of which nobody says in which code page it is.
    std::string NameText(std::int32_t function);
    std::string SystemInfoText();
    std::int32_t BatteryHealthMode();
    std::int32_t QuietFanMode();
    std::int32_t MainSwitch();
};

}  // namespace zorvalis
