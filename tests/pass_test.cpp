// The built executable as a process: what a pass leaves in the files and in the registry.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/notebook.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;
constexpr char kEverything[] = "O Thermal 1, O Battery_Power 1, O SysInfo 1";

class Pass : public testing::Test {
protected:
    // Runs the executable to its end; every path of it ends with 0.
    void Run(const std::string& arguments) const {
        EXPECT_EQ(std::system(("\"" + service + "\" " + arguments).c_str()), 0) << arguments;
    }

    Notebook machine;
    const std::string service = machine.install_service();
};

TEST_F(Pass, StoresWhatIsDueAndLeavesRestingFilesAlone) {
    Run("-j0");
    EXPECT_EQ(machine.stored(), kEverything);
    EXPECT_EQ(machine.data_files(), (std::vector<std::string>{"BGFS.db", FileOf("O")}));
    EXPECT_EQ(machine.row("O", "SELECT t.freq, b.freq, s.freq, cpu_temp FROM Thermal t, Battery_Power b, SysInfo s"),
              "6 2 8 48");
    const std::wstring registered = Value(L"ODb_Filename");
    EXPECT_TRUE(registered.starts_with(WidenBytes(FileOf("O") + ";1;20")));
    const std::string bytes = read_text(kDataFolder + FileOf("O"));
    ExpectEventLog({"UP SUCCESS"});  // there was nothing to send yet
    Run("-j0");
    EXPECT_EQ(read_text(kDataFolder + FileOf("O")), bytes) << "nothing was due";
    EXPECT_EQ(Value(L"ODb_Filename"), L"") << "the record of files has taken it";
    EXPECT_EQ(machine.query("BGFS.db", "SELECT FILE_NAME, FILE_TYPE, FILE_STATUS FROM FILESTATUS"),
              (std::vector<std::vector<std::string>>{{FileOf("O"), "1", "0"}}));
    RemoveValue(L"GetThermal");
    Run("-j0");
    EXPECT_EQ(machine.stored(), "O Thermal 2, O Battery_Power 1, O SysInfo 1");
}

TEST_F(Pass, IsChosenByTheFirstArgumentInAnyCase) {
    for (const auto& [arguments, stored] : {std::pair{"-j2", ""},
                                            {"-j00", ""},
                                            {"-", ""},
                                            {"--j0", ""},
                                            {"-j2 -j0", ""},
                                            {"-j1", ""},
                                            {"/J0 -remove", kEverything}}) {
        Run(arguments);
        EXPECT_EQ(machine.stored(), stored) << arguments;
        EXPECT_EQ(Value(L"lastDojobTime") != ERROR_READREG, *stored != '\0') << arguments;
    }
}

TEST_F(Pass, LiftsTheSuppressionOfPowerEventsOnlyWhereItIsSet) {
    for (const auto& [before, after] : {std::pair{1U, L"0"}, {2U, L"2"}, {0U, L"0"}}) {
        ASSERT_TRUE(WriteRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT", before));
        Run("-j0");
        EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT"), after);
    }
    SetValue(L"SKIP_ONPOWEREVENT", L"1");
    Run("-j0");
    EXPECT_EQ(Value(L"SKIP_ONPOWEREVENT"), L"1") << "a text is no number";
}

TEST_F(Pass, EndsInWordsForASettingFileThatIsBroken) {
    std::vector<std::string> events;
    for (const auto& [text, words] :
         {std::pair{"{", "job0 ended early: parse error*"},
          {R"({"version": 2060})", "job0 ended early: type must be string, but is number"},
          {R"({"version": "2.0.6.0", "thermal": null})", "job0 ended early: type must be string, but is null"}}) {
        machine.setting(text);
        Run("-j0");
        events.emplace_back(words);
        ExpectEventLog(events);
        EXPECT_EQ(Value(L"lastDojobTime"), ERROR_READREG) << "no step ran";
    }
    machine.setting(R"({"version": "2.0.6.0", "totalCollectTime": 600})");  // met by the jobs, not by the load
    Run("-j0");
    events.insert(events.end(), {"DoJob Exception", "DoCJob Exception"});
    ExpectEventLog(events);
    EXPECT_EQ(Value(L"MainSwitch"), L"1");
    EXPECT_EQ(machine.stored(), "");
}

TEST_F(Pass, GoesOnWithoutWhatAMachineMayLack) {
    machine.default_setting(R"({"totalCollectTime": "600", "intervalTimer": "1", "thermal": "m5"})");
    ASSERT_TRUE(platform::remove_file(std::string(kProductFolder) + "setting.json"));
    write_text(std::string(kProductFolder) + "data", "a file in the folder's place");
    Run("-j0");
    EXPECT_NE(Value(L"GetThermal"), ERROR_READREG);
    ASSERT_TRUE(platform::remove_file(std::string(kProductFolder) + "data"));
    RemoveValue(L"GetThermal");
    const fs::path elsewhere = fs::path(machine.bin_folder()) / "elsewhere", before = fs::current_path();
    std::error_code ignored;  // each side has its own library
    fs::create_directory(elsewhere);
    for (const char* file : {"ZorvWinIo64.dll", "ZorvWinIo64.so", "hardware.json"}) {
        fs::copy_file(machine.bin_folder() + file, elsewhere / file, ignored);
    }
    machine.remove_library();
    fs::current_path(elsewhere);  // where everybody may have put one
    Run("-j0");
    fs::current_path(before);
    EXPECT_EQ(Value(L"GetThermal"), ERROR_READREG) << "without its chassis no machine is a notebook";
    machine.install_library();
    ASSERT_TRUE(platform::remove_file(machine.bin_folder() + "default.json"));
    Run("-j0");
    EXPECT_EQ(machine.stored(), "");
}

}  // namespace
}  // namespace zorvalis
