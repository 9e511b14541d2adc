#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

#include "common/json.h"
#include "platform/library.h"
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

template <class Result>
std::string Plain(const char* name, Flag) {
    return std::to_string(Call<Result>(name));
}
template <class Result>
std::string Flagged(const char* name, Flag flag) {
    return std::to_string(Call<Result>(name, flag));
}

struct Shape {
    const char *name, *json, *value, *failed, *missing;
    std::string (*read)(const char*, Flag);
};

const Shape kShapes[] = {
    {"Battery_Read_Current", "-874", "4294966422", "4294967295", "0", Plain<std::uint32_t>},
    {"CPU_ReadCPUUsage", "12.25e-1", "1.225000", "-1.000000", "0.000000", Plain<double>},
    {"Battery_Read_ASOC", "94.5", "94.500000", "-1.000000", "0.000000", Plain<float>},
    {"Thermal_Read_Fan", R"("24\u0031\/")", "241/", "?", "?", [](const char* n, Flag) { return Text<char>(n); }},
    {"System_GetCountryCode_ISO2", "\"DE\"", "DE", "?", "?", [](const char* n, Flag) { return Wide(n); }},
    {"WMIGetMonitorBrightness", "true", "1", "4294967295", "0", Flagged<std::uint32_t>},
    {"WMIGetQuietFan", "257", "1", "255", "0", Flagged<std::uint8_t>},
    {"WMIGetSN", "\"Z 1\"", "Z 1", "?", "?", [](const char* n, Flag flag) { return Wide(n, flag); }},
};

TEST_F(HardwareLibrary, AnswersEveryShapeFromItsFile) {
    for (const Shape& shape : kShapes) {
        const std::string member = "\"" + std::string(shape.name) + "\": ";
        const std::string given = "{\"value\": " + std::string(shape.json);
        const auto expect = [&](const std::string& document, Flag flag, const char* answer) {
            SCOPED_TRACE(document.substr(0, 100));
            machine.hardware(document);
            EXPECT_EQ(shape.read(shape.name, flag), answer);
        };
        expect("{\"first\": [{}, [-1.5e+3]], " + member + shape.json + "}", 1, shape.value);
        expect("{" + member + given + ", \"fail\": true}}", 1, shape.failed);
        expect("{" + member + given + ", \"missing\": true}}", 1, shape.missing);
        const bool flagged = std::string(shape.name).starts_with("WMI");
        expect("{" + member + given + ", \"flag0\": {\"fail\": true}}}", 0, flagged ? shape.failed : shape.value);
        const std::string whole = member + shape.json;
        for (const std::string& faulty : {std::string(), "{" + member + "[]}", "{" + whole, "{" + whole + "} x",
                                          "{" + whole + ", \"deep\": " + std::string(100000, '[')}) {
            expect(faulty, 1, shape.missing);
        }
    }
}

TEST_F(HardwareLibrary, CutsLongTextsBetweenCharacters) {
    const std::string text = "\"x" + std::string(146, 'y') + "\\uD83D\\uDE00\xC3\xA9zzz\"";  // 147, then a pair
    machine.hardware("{\"Thermal_Read_Fan\": " + text + ", \"WMIGetSN\": " + text + "}");
    EXPECT_EQ(Text<char>("Thermal_Read_Fan"), "x" + std::string(146, 'y'));
    const std::wstring wide = L"x" + std::wstring(146, L'y') + L"\U0001F600\u00E9zzz";
    EXPECT_EQ(Text<wchar_t>("WMIGetSN", Flag{1}), wide.substr(0, 149));
}

TEST_F(HardwareLibrary, CountsItsUsersAndLeavesTheProcess) {
    {
        const platform::SharedLibrary library(kLibrary);
        library.function<std::int32_t()>("InitializeWinIo")();
        library.function<std::int32_t()>("InitializeWinIo")();
        library.function<void()>("ShutdownWinIo")();
        EXPECT_EQ(Call<std::uint32_t>("GetRefCount"), 1U);
    }
    EXPECT_EQ(Call<std::uint32_t>("GetRefCount"), 0U);  // a library that stayed would still count one
}

// On Windows the file answers always.
TEST_F(HardwareLibrary, PrefersTheHostWhereItIsAsked) {
#ifdef _WIN32
    const std::string answers = "5;5;5;5;5;own;5;5;5;";
#else
    const std::string answers = "Notebook;2021-03-05;Still 512;?;5;own;-874;46200;5;";
#endif
    const std::string root = machine.bin_folder() + "host";
    std::istringstream files(
        "class/dmi/id/chassis_type 9\nclass/dmi/id/bios_date 03/05/2021\nblock/sda/device/model Still 512 \n"
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
        found += (text ? Wide(name.c_str(), Flag{1}) : Plain<std::int32_t>(name.c_str(), 1)) + ";";
    }
    EXPECT_EQ(found, answers);
}

}  // namespace
