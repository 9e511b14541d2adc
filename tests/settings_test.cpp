#include <gtest/gtest.h>

#include <thread>

#include "common/files.h"
#include "common/registry.h"
#include "common/text.h"
#include "platform/files.h"
#include "settings/setting_file_manager.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

const std::string kStoredFile = std::string(kProductFolder) + "setting.json";

std::string Slot(const SettingFileManager& manager, std::size_t index) {
    return NarrowBytes(manager.Current()->jobValues[index]);
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
    } cases[] = {
        {"a good file", nullptr, kGood, kDefault, "stored"},
        {"switched on", L"1", kGood, kDefault, "stored"},
        {"switched off", L"0", kGood, kDefault, "default"},
        {"switched off without a default", L"0", kGood, nullptr, ""},
        {"an odd switch", L"2", kGood, kDefault, ""},
        {"an empty switch", L"", kGood, kDefault, ""},
        {"an odd switch over a broken file", L"on", "{", "{", ""},
        {"no file", nullptr, nullptr, kDefault, "default"},
        {"no file at all", nullptr, nullptr, nullptr, ""},
        {"another version", nullptr, R"({"version": "2.0.6.1", "thermal": "stored"})", kDefault, "default"},
        {"a longer version", nullptr, R"({"version": "2.0.6.0 ", "thermal": "stored"})", kDefault, "default"},
        {"no version", nullptr, R"({"thermal": "stored"})", kDefault, "default"},
        {"null", nullptr, " null ", kDefault, "default"},
        {"an array", nullptr, R"(["version"])", kDefault, "default"},
        {"a text", nullptr, R"("version")", kDefault, "default"},
        {"no default", nullptr, R"({"version": "1", "thermal": "stored"})", nullptr, ""},
        {"a default that is no object", nullptr, nullptr, "[1]", ""},
    };
    for (const auto& one : cases) {
        TestMachine machine;
        if (one.stored != nullptr) {
            machine.setting(one.stored);
        }
        if (one.fallback != nullptr) {
            machine.default_setting(one.fallback);
        }
        if (one.mainSwitch != nullptr) {
            SetValue(L"MainSwitch", one.mainSwitch);
        }
        SettingFileManager manager;
        manager.ReloadSettingFile();
        EXPECT_EQ(Slot(manager, 0), one.rules) << one.name;
        std::string text;
        EXPECT_EQ(FindSettingText(manager.Current()->tree, "thermal", text), *one.rules != '\0') << one.name;
        EXPECT_EQ(platform::file_exists(kStoredFile), one.stored != nullptr) << one.name;
    }
    TestMachine machine;
    machine.setting(kGood);
    machine.default_setting(kDefault);
    ASSERT_TRUE(WriteRegDword(kLocalMachine, kProductKey, L"MainSwitch", 0));  // a number is no switch
    SettingFileManager manager;
    manager.ReloadSettingFile();
    EXPECT_EQ(Slot(manager, 0), "stored");
}

TEST(SettingFile, LeavesSlotsAloneThatItDoesNotMention) {
    TestMachine machine;
    SettingFileManager manager;
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m5", "upload": "d1", "wmi_event": "wmi_event"})");
    manager.ReloadSettingFile();
    machine.setting(R"({"version": "2.0.6.0", "thermal": "", "battery_power": "m10"})");
    manager.ReloadSettingFile();
    EXPECT_EQ(Slot(manager, 0), "");
    EXPECT_EQ(Slot(manager, 1), "m10");
    EXPECT_EQ(Slot(manager, 3), "d1");
    EXPECT_EQ(Slot(manager, 10), "wmi_event");
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
        EXPECT_EQ(Slot(manager, 0), "m5") << "neither loaded nor replaced by the default";
    }
    machine.setting(R"({"version": 2, "thermal": "m10"})");
    EXPECT_THROW(manager.ReloadSettingFile(), std::domain_error);
    EXPECT_EQ(Slot(manager, 0), "m5");

    machine.setting(R"({"version": "2.0.6.0", "thermal": "m10", "battery_power": 5, "systeminfo": "d30"})");
    EXPECT_THROW(manager.ReloadSettingFile(), std::domain_error);
    EXPECT_EQ(Slot(manager, 0) + Slot(manager, 1) + Slot(manager, 2), "m10m5d1") << "slots are filled in their order";
    EXPECT_EQ(manager.Current()->tree["systeminfo"], "d30");

    SetValue(L"MainSwitch", L"0");
    machine.default_setting("no json");
    EXPECT_THROW(manager.ReloadSettingFile(), std::invalid_argument);
}

TEST(SettingFile, IsWrittenAsItIsAndRemoved) {
    TestMachine machine;
    const SettingFileManager manager;
    manager.RemoveSettingFile();
    manager.SaveSettingFile("{\"a\": \"a longer text\"}\r\n");
    manager.SaveSettingFile("{\"b\":1}");
    EXPECT_EQ(read_text(kStoredFile), "{\"b\":1}");
    EXPECT_EQ(manager.LoadJsonFile("setting.json")["b"], 1);
    EXPECT_TRUE(manager.LoadJsonFile("default.json").is_null());
    EXPECT_TRUE(manager.LoadJsonFile("other.json").is_null());
    manager.RemoveSettingFile();
    EXPECT_FALSE(platform::file_exists(kStoredFile));
    ASSERT_TRUE(platform::create_folder(kStoredFile));
    manager.SaveSettingFile("lost");
    manager.RemoveSettingFile();
    EXPECT_TRUE(manager.LoadJsonFile("setting.json").is_null());
}

TEST(SettingFile, IsReloadedWhileOthersRead) {
    TestMachine machine;
    SettingFileManager manager;
    machine.setting(R"({"version": "2.0.6.0", "thermal": "m5", "intervalTimer": "1"})");
    const auto reload = [&] {
        for (int turn = 0; turn < 100; ++turn) {
            manager.ReloadSettingFile();
            const std::shared_ptr<const Settings> settings = manager.Current();
            std::string text;
            EXPECT_TRUE(FindSettingText(settings->tree, "intervalTimer", text));
            EXPECT_EQ(settings->jobValues[0], L"m5");
        }
    };
    std::thread other(reload);
    reload();
    other.join();
}

}  // namespace
}  // namespace zorvalis
