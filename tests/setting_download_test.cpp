#include <gtest/gtest.h>

#include "common/version.h"
#include "support/file_server.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

constexpr std::int32_t kRaised = -9;
constexpr wchar_t kFlag[] = L"NEEDRELOAD_SETTING_FILE";

// A server's answer with a setting document.
std::string Answer(const std::string& document, const std::string& version = kServiceVersion) {
    return DumpJson(Json{{"json_string", document}, {"service_version", version}, {"status", "OK"}});
}

class SettingDownload : public testing::Test {
protected:
    SettingDownload() {
        machine.default_setting(R"({"thermal": "default"})");
        StartAnew();
    }

    void StartAnew() {
        server.reset();
        machine.change_setting(R"({"thermal": "old"})");
        WriteRegDword(kLocalMachine, kProductKey, kFlag, 0);
    }

    static std::string Stored() { return read_text(std::string(kProductFolder) + "setting.json"); }
    static std::wstring Thermal() { return Jobs().CurrentSettings()->jobValues[0]; }

    Notebook machine;
    FileServer server;
};

TEST_F(SettingDownload, StoresWhatTheServerSendsOnlyWhenItMayRule) {
    const std::string same = Stored();
    const struct {
        const char* name;
        std::string answer;
        std::string stored;
        std::wstring thermal = L"old";
        std::int32_t result = -1;
        std::wstring flag = L"0";
    } cases[] = {
        {"a good one, whose own version does not count",
         Answer(R"( {"version": "1.0", "thermal": "new", "a": 1.50, "downloadSetting": "d1"})"),
         R"({"a":1.5,"downloadSetting":"d1","thermal":"new","version":"2.0.6.0"})", L"new", 0, L"1"},
        {"another version, which is stored and does not rule", Answer(R"({"downloadSetting": "m5"})", "2.0.6"),
         R"({"downloadSetting":"m5","version":"2.0.6"})", L"default", 0, L"1"},
        {"control characters, also in the document",
         "{\"status\":\t\"OK\",\r\n\"service_version\":\"2.0.6.0\",\"json_string\":\f\"{\\\"downloadSetting\\\":\n"
         "\\\"d1\\\",\\\"thermal\\\":\\\"a\tb\bc\\\"}\"}",
         R"({"downloadSetting":"d1","thermal":"a b c","version":"2.0.6.0"})", L"a b c", 0, L"1"},
        {"no document for this client", Status("FAIL"), "", L"default", -1, L"1"},
        {"a number as status", R"({"status": 200})", "", L"default", -1, L"1"},
        {"no status", R"({"service_version": "2.0.6.0", "json_string": "{}"})", same},
        {"no version", R"({"status": "OK", "json_string": "{\"downloadSetting\": \"d1\"}"})", same},
        {"no document", R"({"status": "OK", "service_version": "2.0.6.0"})", same},
        {"an array", "[1]", same},
        {"no period", Answer(R"({"thermal": "new"})"), same},
        {"an unknown period", Answer(R"({"downloadSetting": "d2 "})"), same},
        {"a document that is a number", Answer("5"), same},
        {"the word for a failure", "error", same},
        {"the number for no answer", "0", same},
        {"no answer at all", "", same, L"old", kRaised},
        {"a broken answer", "{", same, L"old", kRaised},
        {"a broken document", Answer("{"), same, L"old", kRaised},
        {"an empty document", Answer(""), same, L"old", kRaised},
        {"a period that is no text", Answer(R"({"downloadSetting": 1})"), same, L"old", kRaised},
    };
    for (const auto& one : cases) {
        StartAnew();
        server.setting = one.answer;
        std::int32_t result = kRaised;
        try {
            result = Jobs().UpdateSettingFile();
        } catch (const std::logic_error&) {
        }
        EXPECT_EQ(result, one.result) << one.name;
        EXPECT_EQ(Stored(), one.stored) << one.name;
        EXPECT_EQ(Thermal(), one.thermal) << one.name;
        EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, kFlag), one.flag) << one.name;
    }
}

TEST_F(SettingDownload, JobMovesItsTimerByTheOutcome) {
    const auto download = [&](const std::string& answer, const std::wstring& timer) {
        StartAnew();
        server.setting = answer;
        SetValue(L"getSettingFile", timer);  // the sentinel's own text reads as a missing value
        const std::int64_t now = SetClock(2030, 1, 2, 3, 4, 5);
        Jobs().DoJob(L"jobDownloadSettingFile", 0, now);
        const std::wstring after = Value(L"getSettingFile");
        return after == timer ? -1 : std::stoll(after) - (now - 5);
    };
    machine.change_hardware(R"({"WMIGetModelName": "Zorv \"14\""})");
    const std::int64_t now = SetClock(2030, 1, 2, 3, 4, 5);
    const std::string good = Answer(R"({"downloadSetting": "d1"})");
    EXPECT_EQ(download(good, ERROR_READREG), 0);
    EXPECT_EQ(server.calls, std::vector<std::string>{"/api/FS/query"});
    EXPECT_EQ(server.body, R"({"clientversion":"2.0.6.0","modelname":"Zorv \"14\""})");
    EXPECT_EQ(download(good, std::to_wstring(now - 86400)), 0);
    EXPECT_EQ(download("error", L"60"), 0) << "a failure waits for a whole period too";
    EXPECT_EQ(download(Status("FAIL"), L"60"), 0);
    ExpectEventLog({});
    EXPECT_EQ(download("{", L"60"), -1);
    ExpectEventLog({"DoJob Exception"});
    EXPECT_EQ(server.calls.size(), 1U);
    EXPECT_EQ(download(good, std::to_wstring(now - 86000)), -1);
    EXPECT_EQ(server.calls.size(), 0U) << "not due";
    StartAnew();
    machine.change_setting(R"({"downloadSetting": "d2"})");
    Jobs().DoJob(L"jobDownloadSettingFile", 0, now);
    EXPECT_EQ(server.calls.size(), 0U) << "no known period";
    if (!platform::machine_folder().empty()) {  // no other machine can be told to be offline
        write_text(platform::machine_folder() + "/network.json", R"({"online": false})");
        EXPECT_EQ(Jobs().UpdateSettingFile(), -2);
        EXPECT_EQ(download(good, ERROR_READREG), 3600 - 86400);
        EXPECT_EQ(download(good, L"120"), 3720 - (now - 5)) << "the stored time moves on";
    }
}

}  // namespace
}  // namespace zorvalis
