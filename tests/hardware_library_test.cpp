#include <gtest/gtest.h>

#include <array>
#include <cwchar>
#include <filesystem>
#include <sstream>

#include "base/json.h"
#include "platform/library.h"
#include "support/machine.h"

namespace {

template <class Result, class... Arguments>
Result Call(const char* name, Arguments... arguments) {
    const platform::SharedLibrary library(L"ZorvWinIo64.dll");
    return library.function<Result(Arguments...)>(name)(arguments...);
}

std::string Text(const char* name) {
    std::array<wchar_t, 200> buffer{L'?'};
    Call<void>(name, buffer.data(), std::uint8_t{1});
    return {buffer.data(), buffer.data() + std::wcslen(buffer.data())};
}

// On Windows the file answers always.
TEST(HardwareLibrary, PrefersTheHostWhereItIsAsked) {
    TestMachine machine;
    machine.install_library();
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
    // A text that holds a member, and a member that comes again: the last one counts.
    machine.hardware(R"({"other": "\",\"source\":\"file\"", "WMIGetCPUInfo": 6, )" + document.dump().substr(1));
    std::string found;
    for (const std::string name : names) {
        const bool text = name.starts_with("WMI");
        found += (text ? Text(name.c_str()) : std::to_string(Call<std::int32_t>(name.c_str()))) + ";";
    }
    EXPECT_EQ(found, answers);
}

}  // namespace
