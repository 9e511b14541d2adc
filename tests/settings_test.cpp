#include <gtest/gtest.h>

#include <thread>

#include "settings/setting_file_manager.h"
#include "support/notebook.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

const std::string kStoredFile = std::string(kProductFolder) + "setting.json";

std::string Slots(const SettingFileManager& manager, std::initializer_list<std::size_t> indices) {
    std::string slots;
    for (const std::size_t index : indices) {
        slots += (slots.empty() ? "" : " ") + NarrowBytes(manager.Current()->jobValues[index]);
    }
    return slots;
}

TEST(SettingFile, RulesWhenItFitsAndOtherwiseTheDefaultDoes) {
    constexpr char kGood[] = R"({"version": "2.0.6.0", "thermal": "stored"})";
    constexpr char kDefault[] = R"({"version": "1", "thermal": "default"})";
    const struct {
        const char* name;
        const wchar_t* mainSwitch;
        const char* stored;
        const char* fallback;
        const char* rules;
    } cases[] = {{"a good file", ERROR_READREG, kGood, kDefault, "stored"},
                 {"switched on", L"1", kGood, kDefault, "stored"},
                 {"switched off", L"0", kGood, kDefault, "default"},
                 {"switched off without a default", L"0", kGood, nullptr, ""},
                 {"an odd switch", L"2", kGood, kDefault, ""},
                 {"an odd switch over broken files", L"", "{", "{", ""},
                 {"no file", ERROR_READREG, nullptr, kDefault, "default"},
                 {"no file at all", ERROR_READREG, nullptr, nullptr, ""},
                 {"a longer version", L"1", R"({"version": "2.0.6.0 ", "thermal": "stored"})", kDefault, "default"},
                 {"no version", L"1", R"({"thermal": "stored"})", kDefault, "default"},
                 {"null", L"1", " null ", kDefault, "default"},
                 {"an array", L"1", R"(["version"])", kDefault, "default"},
                 {"a default that is no object", L"1", nullptr, "[1]", ""}};
    for (const auto& one : cases) {
        TestMachine machine;
        if (one.stored != nullptr) {
            machine.setting(one.stored);
        }
        if (one.fallback != nullptr) {
            machine.default_setting(one.fallback);
        }
        SetValue(L"MainSwitch", one.mainSwitch);  // the sentinel's own text reads as a missing value
        SettingFileManager manager;
        manager.ReloadSettingFile();
        EXPECT_EQ(Slots(manager, {0}), one.rules) << one.name;
        std::string text;
        EXPECT_EQ(FindSettingText(manager.Current()->tree, "thermal", text), *one.rules != '\0') << one.name;
        EXPECT_EQ(platform::file_exists(kStoredFile), one.stored != nullptr) << one.name;
    }
}

TEST(SettingFile, TellsWhichOneItLoads) {
    const std::string prefix = "[SettingFileManager]", load = prefix + "[ReloadSettingFile] ",
                      check = load + "check current setting Json";
    const struct {
        const wchar_t* mainSwitch;
        const char* stored;
        std::vector<std::string> lines;  // between the first and the last
    } cases[] = {
        {L"1", R"({"version": "2.0.6.0"})", {check, load + "get version : 2.0.6.0"}},
        {L"1",
         R"({"version": "1"})",
         {check, load + "get version : 1", load + "current Setting version != service version, Get default json "}},
        {L"1", "{}", {check, prefix + " current Setting file version Err get default json "}},
        {L"1", "null", {load + "settingfile == NULL Get default file"}},
        {L"0", "{}", {load + "Main Switch turn off."}},
        {L"2", "{}", {}},
    };
    for (auto one : cases) {
        TestMachine machine;
        machine.setting(one.stored);
        SetValue(L"MainSwitch", one.mainSwitch);
        one.lines.insert(one.lines.begin(), prefix + " ReloadSettingFile");
        one.lines.push_back(prefix + " get settingfile end");
        std::vector<std::string> lines = Traced([] { SettingFileManager().ReloadSettingFile(); });
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("getCurrentPath"); });
        EXPECT_EQ(lines, one.lines) << one.stored;
    }
}

TEST(SettingFile, LeavesSlotsAloneThatItDoesNotMention) {
    TestMachine machine;
    SettingFileManager manager;
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m5", "upload": "d1", "wmi_event": "wmi_event"})");
    manager.ReloadSettingFile();
    machine.setting(R"({"version": "2.0.6.0", "thermal": "", "battery_power": "m10"})");
    manager.ReloadSettingFile();
    EXPECT_EQ(Slots(manager, {1, 0, 3, 10}), "m10  d1 wmi_event");
    std::string text;
    EXPECT_FALSE(FindSettingText(manager.Current()->tree, "upload", text)) << "the tree is the new one";
}

TEST(SettingFile, RaisesWhatIsBrokenOrOfTheWrongType) {
    TestMachine machine;
    SettingFileManager manager;
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m5", "battery_power": "m5", "systeminfo": "d1"})");
    machine.default_setting(R"({"thermal": "default"})");
    manager.ReloadSettingFile();
    for (const char* broken : {"", "{", "{\"version\": \"2.0.6.0\",}", "{\"version\": \"\xFF\"}"}) {
        machine.setting(broken);
        EXPECT_THROW(manager.ReloadSettingFile(), std::invalid_argument) << broken;
        EXPECT_EQ(manager.Current()->tree["systeminfo"], "d1") << "neither loaded nor replaced by the default";
    }
    machine.setting(R"({"version": 2, "thermal": "m10"})");
    EXPECT_THROW(manager.ReloadSettingFile(), std::domain_error);
    EXPECT_EQ(Slots(manager, {0}), "m5");
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m10", "battery_power": 5, "systeminfo": "d30"})");
    EXPECT_THROW(manager.ReloadSettingFile(), std::domain_error);
    EXPECT_EQ(Slots(manager, {0, 1, 2}), "m10 m5 d1") << "slots are filled in their order";
    EXPECT_EQ(manager.Current()->tree["systeminfo"], "d30");
    SetValue(L"MainSwitch", L"0");
    machine.default_setting("no json");
    EXPECT_THROW(manager.ReloadSettingFile(), std::invalid_argument);
}

TEST(SettingFile, IsWrittenAsItIsAndRemoved) {
    TestMachine machine;
    const SettingFileManager manager;
    manager.SaveSettingFile("{\"a\": \"a longer text\"}\r\n");
    manager.SaveSettingFile("{\"b\":1}");
    EXPECT_EQ(read_text(kStoredFile), "{\"b\":1}");
    EXPECT_EQ(manager.LoadJsonFile("setting.json")["b"], 1);
    EXPECT_TRUE(manager.LoadJsonFile("default.json").is_null());
    manager.RemoveSettingFile();
    manager.RemoveSettingFile();
    EXPECT_FALSE(platform::file_exists(kStoredFile));
    ASSERT_TRUE(platform::create_folder(kStoredFile));
    manager.SaveSettingFile("lost");
    EXPECT_TRUE(manager.LoadJsonFile("setting.json").is_null());
}

TEST(SettingFile, IsReloadedWhileOthersRead) {
    TestMachine machine;
    SettingFileManager manager;
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m5", "intervalTimer": "1"})");
    const auto reload = [&] {
        for (int turn = 0; turn < 100; ++turn) {
            manager.ReloadSettingFile();
            EXPECT_EQ(manager.Current()->tree["intervalTimer"], "1");
            EXPECT_EQ(Slots(manager, {0}), "m5");
        }
    };
    std::thread other(reload);
    reload();
    other.join();
}

}  // namespace
}  // namespace zorvalis
