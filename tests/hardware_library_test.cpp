#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

#include "base/json.h"
#include "platform/library.h"
#include "platform/machine.h"
#include "support/machine.h"

namespace {

constexpr wchar_t kLibrary[] = L"ZorvWinIo64.dll";

template <class Result, class... Arguments>
Result Call(const char* name, Arguments... arguments) {
    const platform::SharedLibrary library(kLibrary);
    auto* const function = library.function<Result(Arguments...)>(name);
    if (function == nullptr) {
        throw std::runtime_error(std::string("no export ") + name);
    }
    return function(arguments...);
}

// What lies before the first zero of a buffer that held "?" and is longer than the callers' buffers.
template <class Char, class... Arguments>
std::basic_string<Char> Text(const char* name, Arguments... arguments) {
    std::array<Char, 200> buffer{'?'};
    Call<void, Char*>(name, buffer.data(), arguments...);
    return buffer.data();
}

template <class... Arguments>
std::string Wide(const char* name, Arguments... arguments) {
    std::string narrow;
    for (const wchar_t c : Text<wchar_t>(name, arguments...)) {
        narrow += static_cast<char>(c);
    }
    return narrow;
}

class HardwareLibrary : public testing::Test {
protected:
    void SetUp() override { machine.install_library(); }

    TestMachine machine;
};

using Flag = std::uint8_t;

TEST_F(HardwareLibrary, AnswersNothingFromAFileThatIsNoJson) {
    const std::string sound = R"({"first": [{}, [-1.5e+3]], "CPU_ReadCPUUsage": 12.25e-1})";
    machine.hardware(sound);
    EXPECT_EQ(Call<double>("CPU_ReadCPUUsage"), 1.225);
    for (const std::string& faulty :
         {std::string(), std::string(R"({"CPU_ReadCPUUsage": []})"), sound.substr(0, sound.size() - 1), sound + " x",
          R"({"CPU_ReadCPUUsage": 1, "deep": )" + std::string(100000, '[')}) {
        machine.hardware(faulty);
        EXPECT_EQ(Call<double>("CPU_ReadCPUUsage"), 0.0) << faulty.substr(0, 100);
    }
}

TEST_F(HardwareLibrary, CutsLongTextsBetweenCharacters) {
    const std::string text = "\"x" + std::string(146, 'y') + "\\uD83D\\uDE00\xC3\xA9zzz\"";  // 147, then a pair
    machine.hardware("{\"Thermal_Read_Fan\": " + text + ", \"WMIGetSN\": " + text + "}");
    EXPECT_EQ(Text<char>("Thermal_Read_Fan"), "x" + std::string(146, 'y'));
    const std::wstring wide = L"x" + std::wstring(146, L'y') + L"\U0001F600\u00E9zzz";
    EXPECT_EQ(Text<wchar_t>("WMIGetSN", Flag{1}), wide.substr(0, 149));
}

// On Windows the file answers always.
TEST_F(HardwareLibrary, PrefersTheHostWhereItIsAsked) {
#ifdef _WIN32
    const std::string answers = "5;5;5;5;5;own;5;5;5;";
#else
    const std::string answers = "Notebook;2021-03-05;\"Still\\;?;5;own;-874;46200;5;";
#endif
    const std::string root = machine.bin_folder() + "host";
    std::istringstream files(
        "class/dmi/id/chassis_type 9\nclass/dmi/id/bios_date 03/05/2021\nblock/sda/device/model \"Still\\\n"
        "block/sda/queue/rotational 0\nblock/sda/removable 0\nblock/sda/size 1000215216\n"
        "class/power_supply/BAT0/type Battery\nclass/power_supply/BAT0/status Discharging\n"
        "class/power_supply/BAT0/current_now 874000\nclass/power_supply/BAT0/charge_now 4000000\n"
        "class/power_supply/BAT0/voltage_min_design 11550000\n");
    for (std::string path, text; files >> path && std::getline(files.ignore(), text);) {
        path = root + "/sys/" + path;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        write_text(path, text + "\n");
    }
    zorvalis::Json document = {{"source", "host"}, {"hostRoot", root}};
    const auto names = {"WMIGetSystemChassisTypes", "WMIGetBiosReleaseDate", "WMIGetSSDModel",
                        "WMIGetHDDModel",           "WMIGetCPUInfo",         "WMIGetHDDInfo",
                        "Battery_Read_Current",     "Battery_Read_Capacity", "Battery_Read_CycleCount"};
    for (const char* name : names) {
        document[name] = 5;
    }
    document["WMIGetHDDInfo"] = {{"value", "own"}, {"source", "file"}};
    machine.hardware(document.dump());
    std::string found;
    for (const std::string name : names) {
        const bool text = name.starts_with("WMI");
        found += (text ? Wide(name.c_str(), Flag{1}) : std::to_string(Call<std::int32_t>(name.c_str()))) + ";";
    }
    EXPECT_EQ(found, answers);
}

#ifndef _WIN32
TEST_F(HardwareLibrary, LooksForItsMachineWhereTheCoreDoes) {
    const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    ::setenv("HOME", (machine.bin_folder() + "home").c_str(), 1);
    ::unsetenv("ZORV_MACHINE");
    for (const std::string& state : {std::string("relative"), machine.bin_folder() + "state", std::string()}) {
        ::setenv("XDG_STATE_HOME", state.c_str(), 1);
        const std::string folder = platform::machine_folder();
        EXPECT_EQ(folder, machine.bin_folder() + (state.size() > 8 ? "state" : "home/.local/state") + "/zorv-machine");
        std::filesystem::create_directories(folder);
        write_text(folder + "/hardware.json", "{\"CPU_ReadCPUUsage\": " + std::to_string(state.size()) + "}");
        EXPECT_EQ(Call<double>("CPU_ReadCPUUsage"), static_cast<double>(state.size())) << state;
    }
    ::unsetenv("XDG_STATE_HOME");
    ::setenv("HOME", home.c_str(), 1);
}
#endif

}  // namespace
