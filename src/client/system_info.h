// What is behind every call of a client (docs/rpc.md). A client asks in one of two ways: with a JSON text that is
// answered by a JSON text, or directly, where the value goes back by a callback into the client while its call runs.
// One instance serves one client context. It has no state, so any number of calls may run on it at once, on threads of
// the transport. The job lock keeps their work apart: a call waits 60 seconds for it and is then dropped.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/json.h"

namespace zorvalis {

// The functions' numbers, in JSON calls and in callbacks. Kept: 6 and 7 are for callbacks only; a JSON call of them is
// refused.
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
    // The procedures of sdk/zorvalis.idl. Some take a cookie that they do not use.

    // Writes the answer to the JSON call `input` to `output`, which has room for `outputSize` characters; an empty text
    // when there is no answer or it does not fit. Throws what the dispatcher throws.
    void BigDataServiceCall(const wchar_t* input, wchar_t* output, std::int32_t outputSize, std::int64_t cookie = 0);

    // The answer to a JSON call; empty for a call that is not JSON, or when the job lock cannot be had. Kept: a call
    // with members of the wrong type throws std::domain_error (std::out_of_range for a consent number that is too
    // large) and leaves the job lock held: from then on only calls on the same thread are served.
    std::string BigDataServiceCallDispatcher(std::wstring input);

    // Runs a getter and sends its value by callback, together with the client's `cookie`. Makes no callback when the
    // job lock cannot be had, or for a number that is not a direct getter's.
    void SystemInfoDispatcher(std::int32_t function, std::int64_t cookie);

    // A way through all layers and back, for developers: asks the test library to add one.
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
    // Answers in the buffer, like BigDataServiceCall, and without the job lock.
    void GetUUID(wchar_t* output, std::int32_t outputSize, std::int64_t cookie = 0);

    // These change something. They do not take the job lock themselves, but each of their jobs does.
    void SetAppFolder(const wchar_t* path, std::int64_t cookie);
    void SetBatteryHealth(std::int64_t value, std::int64_t cookie);
    void SetQuietFan(bool on, std::int64_t cookie);
    void SetMainSwitchByUser(bool on, std::int64_t cookie);
    // `result` becomes 1 when the consent was recorded, else 0. Kept: this way records an agreement only, the JSON
    // function a refusal too.
    void SetMyZorvPP(const wchar_t* windowsAccount, const wchar_t* appName, const wchar_t* appVersion,
                     const wchar_t* timeText, bool isAgreePP, std::int32_t* result, std::int64_t cookie = 0);

    // The library's text for one of the seven functions in kSystemInfo; empty for any other name.
    std::wstring ReadFromDllFunction(const std::string& name);
    Json RetriveSystemInfoJson();

private:
    // How a function called by JSON ended, and the text for the answer's "parameter".
    struct Outcome {
        bool success;
        std::string parameter;
    };
    using Parameters = std::map<std::string, std::string>;

    std::string AnswerCall(const std::string& input);
    Outcome TestAndRun(std::int32_t function, std::int32_t version, const Json& call);
    Outcome Run(std::int32_t function, Parameters parameters);

    // The values, as both ways deliver them. Kept: names are narrowed byte by byte, the system information is in the
    // ANSI code page, and a client is told neither.
    std::string NameText(std::int32_t function);
    std::string SystemInfoText();
    std::int32_t BatteryHealthMode();
    std::int32_t QuietFanMode();
    std::int32_t MainSwitch();
};

}  // namespace zorvalis
