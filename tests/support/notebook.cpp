#include "support/notebook.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <tuple>

#include "store/db_file.h"

namespace {

namespace fs = std::filesystem;
using namespace zorvalis;

constexpr char kHardware[] = R"({"WMIGetSystemChassisTypes": "Notebook", "Thermal_Read_Cpu_Temperature": 48,
    "GPNV_RandomUUID": "00112233-4455-6677-8899-aabbccddeeff", "GPNV_ActivatedTime": "blank"})";

constexpr char kSetting[] = R"({"version": "2.0.6.0", "downloadSetting": "d1", "intervalTimer": "1",
    "totalCollectTime": "600", "thermal": "m30", "battery_power": "m10", "systeminfo": "d1", "upload": "d1",
    "poweronoff": "poweronoff", "suspend_resume": "suspend_resume", "ac_dc": "ac_dc",
    "lid_open_close": "lid_open_close", "quiet_fan": "quiet_fan", "battery_health": "battery_health",
    "wmi_event": "wmi_event"})";

std::string Merged(const char* usual, const std::string& changes) {
    Json tree = ParseJson(usual);
    tree.merge_patch(ParseJson(changes));
    return DumpJson(tree);
}

}  // namespace

Notebook::Notebook() {
    install_library();
    ready();
    change_hardware("{}");
    change_setting("{}");
    WriteRegString(kLocalMachine, kProductKey, L"BGSERVER_URL", L"localhost");  // where nothing answers
}

void Notebook::change_hardware(const std::string& changes) {
    fs::remove(platform::machine_folder() + "/hardware.json");  // the machine's own would hide the library's
    hardware(Merged(kHardware, changes));
}

void Notebook::change_setting(const std::string& changes) {
    setting(Merged(kSetting, changes));
    Jobs().ReloadSettingFile();
}

std::string Notebook::install_service() {
    fs::copy_file(built(fs::path(executable()).filename().string()), executable());
    return executable();
}

void Notebook::replace_library() {
    for (const auto& entry : fs::directory_iterator(built("../tests/no_exports"))) {
        fs::copy_file(entry.path(), bin_folder() + entry.path().filename().string(),
                      fs::copy_options::overwrite_existing);
    }
}

void Notebook::remove_library() {
    for (const char* name : {"ZorvWinIo64.dll", "ZorvWinIo64.so"}) {
        fs::remove(bin_folder() + name);
    }
}

std::string Notebook::stored() const {
    std::string result;
    for (const std::string& file : data_files()) {
        for (const char* table : {"Thermal", "Battery_Power", "SysInfo", "UserBehavior"}) {
            const std::string count = query(file, std::string("SELECT COUNT(*) FROM ") + table)[0][0];
            if (count != "0" && !count.starts_with("no such table")) {
                result += (result.empty() ? "" : ", ") + file.substr(0, 1) + " " + table + " " + count;
            }
        }
    }
    return result;
}

std::string Notebook::row(const char* letter, const std::string& sql) const {
    std::string joined;
    const auto rows = query(FileOf(letter), sql);
    for (const std::string& field : rows.empty() ? std::vector<std::string>() : rows[0]) {
        joined += (joined.empty() ? "" : " ") + field;
    }
    return joined;
}

std::string FileOf(const std::string& letter) {
    return letter + "_" + getAutoDBFileName() + ".db";
}

std::wstring Value(const std::wstring& name) {
    return ReadRegString(kLocalMachine, kProductKey, name);
}

void SetValue(const std::wstring& name, const std::wstring& text) {
    ASSERT_TRUE(WriteRegString(kLocalMachine, kProductKey, name, text));
}

void RemoveValue(const std::wstring& name) {
    DeleteRegValue(kLocalMachine, kProductKey, name);
}

JobManager& Jobs() {
    return JobManager::GetInstance();
}

std::int64_t SetClock(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    std::tie(local.tm_year, local.tm_mon, local.tm_mday) = std::tuple(year - 1900, month - 1, day);
    std::tie(local.tm_hour, local.tm_min, local.tm_sec) = std::tuple(hour, minute, second);
    const std::int64_t time = platform::local_seconds(local);
    platform::set_clock({});
    platform::set_clock({time - platform::now_seconds(), 1.0});
    return time;
}

TimeZone::TimeZone(const std::string& zone) {
    const char* const before = std::getenv("TZ");
    before_ = before != nullptr ? before : "";
    Set(zone);
}

// An empty variable takes it away on Windows and would be UTC elsewhere.
void TimeZone::Set(const std::string& zone) {
#ifdef _WIN32
    ::_putenv_s("TZ", zone.c_str());
#else
    zone.empty() ? ::unsetenv("TZ") : ::setenv("TZ", zone.c_str(), 1);
#endif
}

void ExpectEventLog(const std::vector<std::string>& texts) {
    if (platform::machine_folder().empty()) {
        return;
    }
    std::vector<std::string> entries;
    std::istringstream log(read_text(platform::machine_folder() + "/eventlog.jsonl"));
    for (std::string line; std::getline(log, line);) {
        std::string text = ParseJson(line)["strings"][1];
        const std::string expected = entries.size() < texts.size() ? texts[entries.size()] : "";
        if (expected.ends_with('*') && text.starts_with(expected.substr(0, expected.size() - 1))) {
            text = expected;
        }
        entries.push_back(text);
    }
    EXPECT_EQ(entries, texts);
}
