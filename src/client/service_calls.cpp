// The JSON way: from the text of a call to the text of its answer. The direct way is in system_info.cpp.
#include <array>
#include <cstdio>
#include <stdexcept>

#include "base/number.h"
#include "client/consent.h"
#include "client/system_info.h"
#include "common/code_page.h"
#include "common/device_identity.h"
#include "common/log.h"
#include "common/time.h"
#include "common/version.h"
#include "common/wide_to_utf8.h"
#include "jobs/job_manager.h"

namespace zorvalis {
namespace {

// A value that is not an object has no keys, so such a call is answered like one whose key is missing.
bool HasKey(const Json& value, const char* key) {
    if (value.is_object() && value.contains(key)) {
        return true;
    }
    LogMessage("[SystemInfoClass] parse json string : " + DumpJson(value) + ", Parameter : " + key + ", Fail.");
    return false;
}

Json MakeAnswer(bool success, const std::string& parameter, std::int32_t function, std::int32_t version) {
    Json answer = Json::object();
    answer["status"] = success ? "Success" : "Error";
    answer["parameter"] = parameter;
    answer["function"] = function;
    answer["version"] = version;
    return answer;
}

bool TakesParameter(std::int32_t function) {
    return function == kSetAppFolder || function == kSetMainSwitchByUser || function == kCollectQuietFan ||
           function == kCollectBatteryHealth || function == kSetMyZorvPP;
}

void SetAppFolderFrom(const std::string& path) {
    const auto folder = AnsiToWideBuffer(Utf8ToAnsi(path).c_str());
    JobManager::GetInstance().RequestAppFolder(folder.get());
    JobManager::GetInstance().DoJob(L"jobSetAppFolder", 0, 0);
}

// Kept: True and False in the event log tell whether the job succeeded, not which way the switch was set.
bool SetMainSwitchFrom(const std::string& on) {
    JobManager::GetInstance().RequestMainSwitch(on == "1" ? 1 : 0);
    const bool done = JobManager::GetInstance().DoJob(L"jobSetMainSwitch", 0, 0) == 1;
    ReportServiceEvent(done ? L" MainSwitch True" : L" MainSwitch False", kInformation);
    return done;
}

// Functions 14 and 15 only record a change that the client has made by itself; they do not set the mode.
void CollectQuietFan(const std::string& on) {
    if (on == "1") {
        JobManager::GetInstance().DoCollectJob(L"quiet_fan", JOB_TRIGGER_QUIET_FAN_ON, false, 0);
        ReportServiceEvent(L" SetQuietFan ON data collect ", kInformation);
    } else {
        JobManager::GetInstance().DoCollectJob(L"quiet_fan", JOB_TRIGGER_QUIET_FAN_OFF, false, 0);
        ReportServiceEvent(L" SetQuietFan OFF data collect", kInformation);
    }
}

bool CollectBatteryHealth(const std::string& mode) {
    struct Mode {
        const char* text;
        JobTrigger trigger;
        const wchar_t* words;
    };
    constexpr std::array<Mode, 3> kModes = {{
        {"100", JOB_TRIGGER_BATTERY_HEALTH_100, L" SetBatteryHealth 100 data collect"},
        {"80", JOB_TRIGGER_BATTERY_HEALTH_80, L" SetBatteryHealth 80 data collect"},
        {"60", JOB_TRIGGER_BATTERY_HEALTH_60, L" SetBatteryHealth 60 data collect"},
    }};
    for (const Mode& one : kModes) {
        if (mode == one.text) {
            JobManager::GetInstance().DoCollectJob(L"battery_health", one.trigger, false, 0);
            ReportServiceEvent(one.words, kInformation);
            return true;
        }
    }
    ReportServiceEvent(L" SetBatteryHealth error data collect", kInformation);
    return false;
}

bool RecordConsent(const std::string& account, const std::string& appName, const std::string& appVersion,
                   const std::string& time, const std::string& isAgreePP) {
    const std::string windowsAccount = Utf8ToAnsi(account);
    LogMessage(windowsAccount + "," + appName + "," + appVersion + "," + time + "," + isAgreePP);
    return CallPPForString(windowsAccount, appName, appVersion, ParseSystemTime(time), ParseInt32(isAgreePP) != 0);
}

}  // namespace

std::string SystemInfoClass::BigDataServiceCallDispatcher(std::wstring input) {
    ReportServiceEvent(L"[ BigDataServiceCallDispatcher] <--- ", kInformation);
    LogMessage("[SystemInfoClass] <-- BigDataServiceCallDispatcher");
    if (!JobLock().wait(60000)) {
        return "";
    }
    std::string answer;
    // Kept: only this kind of error is caught. Any other leaves the job lock held and is a fault for the client.
    try {
        answer = AnswerCall(WideToUtf8(input));
    } catch (const std::invalid_argument& error) {
        std::printf("message: %s\n", error.what());
        JobLock().release();
        LogMessage(" [SystemInfoClass] BigDataServiceCallDispatcher Exception");
        ReportServiceEvent(L" SystemInfoClass::BigDataServiceCallDispatcher Exception", kWarning);
        return "";
    }
    LogMessage(answer);
    LogMessage("[SystemInfoClass] --> BigDataServiceCallDispatcher");
    JobLock().release();
    ReportServiceEvent(L"[ BigDataServiceCallDispatcher] ---> ", kInformation);
    return answer;
}

std::string SystemInfoClass::AnswerCall(const std::string& input) {
    LogMessage(" [BigDataServiceCallDispatcher] input string : " + input);
    const Json call = ParseJson(input);
    LogMessage(" [BigDataServiceCallDispatcher] parse input ok");
    std::int32_t function = -1;
    std::int32_t version = -1;
    bool runs = false;
    Json answer;
    if (HasKey(call, "function")) {
        function = JsonInteger(call["function"]);
        runs = HasKey(call, "version");
    } else {
        answer = MakeAnswer(false, "Function unavailable", -1, -1);  // Kept: overwritten by "Version unavailable"
    }
    if (runs) {
        version = JsonInteger(call["version"]);
    } else {
        answer = MakeAnswer(false, "Version unavailable", function, -1);
    }
    LogMessage("[SystemInfoClass] BigDataServiceCallDispatcher -  version : " + std::to_string(version) +
               " function : " + std::to_string(function));
    if (runs) {
        const Outcome outcome = TestAndRun(function, version, call);
        answer = MakeAnswer(outcome.success, outcome.parameter, function, version);
    }
    return DumpJson(answer);
}

SystemInfoClass::Outcome SystemInfoClass::TestAndRun(std::int32_t function, std::int32_t version, const Json& call) {
    if (function > kGetWiFiCardName || function < 0 || function == kSetBatteryHealth || function == kSetQuietFan) {
        return {false, "Function not supported"};
    }
    if (version != 1) {
        return {false, "Version not supported"};
    }
    Parameters parameters;
    if (TakesParameter(function)) {
        if (!HasKey(call, "parameter")) {
            return {false, "Parameter not supported"};
        }
        for (const auto& [key, value] : call["parameter"].get<std::map<std::string, Json>>()) {
            if (value.is_string()) {  // Kept: members of other types are dropped without a word
                parameters[key] = value.get<std::string>();
            }
        }
    }
    return Run(function, std::move(parameters));
}

SystemInfoClass::Outcome SystemInfoClass::Run(std::int32_t function, Parameters parameters) {
    const auto value = [](const std::string& text) {
        Json json = Json::object();
        json["p1"] = text;
        return Outcome{true, DumpJson(json)};
    };
    std::string& p1 = parameters["p1"];  // a missing one reads as an empty text
    switch (function) {
        case kGetModelName:
        case kGetSerialNumber:
        case kGetFamilyName:
        case kGetChassisTypes:
        case kGetProductName:
        case kGetWiFiCardName:
            return value(NameText(function));
        case kGetBatteryHealthMode:
            return value(std::to_string(BatteryHealthMode()));
        case kGetQuietFanMode:
            return value(std::to_string(QuietFanMode()));
        case kGetSystemInfoData:
            return value(SystemInfoText());
        case kGetVersionString:
            return value(kServiceVersion);
        case kGetMainSwitchByUser:
            return value(std::to_string(MainSwitch()));
        case kGetUUID:
            return value(getDeviceUUID());
        case kSetAppFolder:
            SetAppFolderFrom(p1);
            return {true, ""};
        case kSetMainSwitchByUser:
            return SetMainSwitchFrom(p1) ? Outcome{true, ""} : Outcome{false, "Set main switch reg fail."};
        case kCollectQuietFan:
            CollectQuietFan(p1);
            return {true, ""};
        case kCollectBatteryHealth:
            return CollectBatteryHealth(p1) ? Outcome{true, ""} : Outcome{false, "Parameter not supported"};
        case kSetMyZorvPP:
            return RecordConsent(p1, parameters["p2"], parameters["p3"], parameters["p4"], parameters["p5"])
                       ? Outcome{true, ""}
                       : Outcome{false, "Set PP fail"};
        default:
            return {false, "Function not supported"};
    }
}

}  // namespace zorvalis
