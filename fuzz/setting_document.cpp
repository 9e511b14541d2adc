// The setting file (FuzzSettingDocument): whatever it says, the predicates and the download must work with it or refuse
// it, and what is stored must read as the same again.
#include <cstdio>

#include "base/json.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/version.h"
#include "jobs/job_manager.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "surroundings.h"

using namespace zorvalis;

namespace {

// With every key, since a value stays when a later file does not have its key: no earlier input may shine through.
constexpr char kUsual[] = R"({"version": "2.0.6.0", "downloadSetting": "d1", "intervalTimer": "1",
    "totalCollectTime": "600", "thermal": "m30", "battery_power": "m10", "systeminfo": "d1", "upload": "d1",
    "poweronoff": "poweronoff", "suspend_resume": "suspend_resume", "ac_dc": "ac_dc",
    "lid_open_close": "lid_open_close", "quiet_fan": "quiet_fan", "battery_health": "battery_health",
    "wmi_event": "wmi_event"})";

const std::string kStored = std::string(kProductFolder) + "setting.json";

JobManager& Jobs() {
    return JobManager::GetInstance();
}

void Store(const std::string& text) {
    platform::remove_file(kStored);  // some file systems wait for the disk when a file is overwritten
    FuzzMachine().setting(text);
}

// The machine as it was before the first input.
void StartAnew() {
    FuzzMachine();
    std::remove((platform::machine_folder() + "/eventlog.jsonl").c_str());
    for (const wchar_t* name : {L"GetThermal", L"GetBatteryPower", L"GetSystemInfo", L"getSettingFile",
                                L"lastDojobTime", L"NEEDRELOAD_SETTING_FILE"}) {
        DeleteRegValue(kLocalMachine, kProductKey, name);
    }
    WriteRegString(kLocalMachine, kProductKey, L"lastDojobTime", L"86400");
    Store(kUsual);
    Jobs().ReloadSettingFile();
}

// Asks all that a pass and an event ask of the settings that rule now.
void Obey() {
    const std::int64_t now = platform::now_seconds();
    for (const bool timed : {true, false}) {
        Attempt([&] { return static_cast<std::int32_t>(Jobs().BigdataCheck(L"ac_dc", timed, now)); });
    }
    for (const std::int32_t kind : {0, 1, 2}) {
        Jobs().triggerCodeOf(kind);
    }
}

// The result of UpdateSettingFile when the server gives that answer.
std::int32_t Download(std::string answer) {
    SetAnswers({{L"200", std::move(answer)}});
    const std::int32_t result = Attempt([] { return Jobs().UpdateSettingFile(); });
    if (result == 0) {
        Obey();
    }
    return result;
}

// An answer that is right except for its document, in which each byte is a character.
std::string Wrapped(std::string_view document) {
    std::string text;
    for (const char c : document) {
        char escape[8];
        std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned char>(c));
        text += c == '"' || c == '\\' || static_cast<unsigned char>(c) < ' ' ? escape : std::string(1, c);
    }
    return R"({"status":"OK","service_version":")" + std::string(kServiceVersion) + R"(","json_string":")" + text +
           "\"}";
}

}  // namespace

std::int32_t FuzzSettingDocument(std::string_view bytes) {
    StartAnew();
    Store(std::string(bytes));
    Attempt([] {
        Jobs().ReloadSettingFile();
        return 0;
    });
    Obey();
    SetAnswers({});
    Jobs().DoJob(L"jobDownloadSettingFile", 0, platform::now_seconds());
    Download(std::string(bytes));
    const std::int32_t result = Download(Wrapped(bytes));
    const std::string stored = read_text(kStored);
    if (result == 0 && DumpJson(ParseJson(stored)) != stored) {
        Finding("what was stored reads as something else");
    }
    return result;
}
