// What the host measures: temperatures, fans, load, battery and power, lid, screens.
#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "host_linux.h"

namespace zorvalis {
namespace {

constexpr std::string_view kSensors = "/sys/class/hwmon/";
constexpr std::string_view kSupplies = "/sys/class/power_supply/";
constexpr std::string_view kBacklights = "/sys/class/backlight/";
constexpr std::string_view kScreens = "/sys/class/drm/";
constexpr std::string_view kLids = "/proc/acpi/button/lid/";

void AddTenths(Line& answer, std::int64_t tenths) {
    answer.Add(tenths / 10).Add(".").Add(tenths % 10);
}

// Adds a file's number; `divisor` turns the kernel's unit into the export's.
bool AddNumber(const Host& host, Pieces path, std::int64_t divisor, Line& answer) {
    std::int64_t number = 0;
    if (!host.Number(path, number)) {
        return false;
    }
    answer.Add(number / divisor);
    return true;
}

// Degrees Celsius of the first sensor whose chip is one of these.
bool Temperature(const Host& host, Pieces chips, Line& answer) {
    return host.Any({kSensors}, [&](std::string_view sensor) {
        Line chip;
        return host.Read({kSensors, sensor, "/name"}, chip) &&
               std::find(chips.begin(), chips.end(), chip.view()) != chips.end() &&
               AddNumber(host, {kSensors, sensor, "/temp1_input"}, 1000, answer);
    });
}

bool Fans(const Host& host, Line& answer) {
    host.Any({kSensors}, [&](std::string_view sensor) {
        return host.Any({kSensors, sensor}, [&](std::string_view file) {
            std::int64_t speed = 0;
            if (BeginsWith(file, "fan") && EndsWith(file, "_input") &&
                host.Number({kSensors, sensor, "/", file}, speed)) {
                NextItem(answer).Add(speed);
            }
            return false;
        });
    });
    return !answer.view().empty();
}

// Calls `visit` for each battery of the machine until it returns true; that of a mouse has the scope "Device".
template <class Visit>
bool InBattery(const Host& host, Visit visit) {
    return host.Any({kSupplies}, [&](std::string_view name) {
        return host.Is({kSupplies, name, "/type"}, "Battery") && !host.Is({kSupplies, name, "/scope"}, "Device") &&
               visit(name);
    });
}

bool BatteryNumber(const Host& host, std::string_view file, std::int64_t divisor, Line& answer) {
    return InBattery(host, [&](std::string_view name) {
        return AddNumber(host, {kSupplies, name, "/", file}, divisor, answer);
    });
}

// In mWh. A battery that counts charge instead of energy is converted with its design voltage. `which` is "full",
// "full_design" or "now".
bool Energy(const Host& host, std::string_view name, std::string_view which, std::int64_t& energy) {
    if (host.Number({kSupplies, name, "/energy_", which}, energy)) {
        energy /= 1000;
        return true;
    }
    std::int64_t voltage = 0;
    if (!host.Number({kSupplies, name, "/charge_", which}, energy) ||
        !host.Number({kSupplies, name, "/voltage_min_design"}, voltage)) {
        return false;
    }
    energy = energy / 1000 * (voltage / 1000) / 1000;
    return true;
}

bool Capacity(const Host& host, std::string_view which, Line& answer) {
    return InBattery(host, [&](std::string_view name) {
        std::int64_t energy = 0;
        if (!Energy(host, name, which, energy)) {
            return false;
        }
        answer.Add(energy);
        return true;
    });
}

// In percent with one decimal: the full charge against the design's.
bool StateOfHealth(const Host& host, Line& answer) {
    return InBattery(host, [&](std::string_view name) {
        std::int64_t full = 0;
        std::int64_t design = 0;
        if (!Energy(host, name, "full", full) || !Energy(host, name, "full_design", design) || design <= 0) {
            return false;
        }
        AddTenths(answer, full * 1000 / design);
        return true;
    });
}

// In mA, negative while the battery discharges.
bool Current(const Host& host, Line& answer) {
    return InBattery(host, [&](std::string_view name) {
        std::int64_t current = 0;
        if (!host.Number({kSupplies, name, "/current_now"}, current)) {
            std::int64_t power = 0;
            std::int64_t voltage = 0;
            if (!host.Number({kSupplies, name, "/power_now"}, power) ||
                !host.Number({kSupplies, name, "/voltage_now"}, voltage) || voltage < 1000) {
                return false;
            }
            current = power / (voltage / 1000) * 1000;
        }
        const bool empties = host.Is({kSupplies, name, "/status"}, "Discharging");
        const std::int64_t size = (current < 0 ? -current : current) / 1000;
        answer.Add(empties ? -size : size);
        return true;
    });
}

bool OnMains(const Host& host, Line& answer) {
    return host.Any({kSupplies}, [&](std::string_view name) {
        return host.Is({kSupplies, name, "/type"}, "Mains") && AddNumber(host, {kSupplies, name, "/online"}, 1, answer);
    });
}

bool LidOpen(const Host& host, Line& answer) {
    return host.Any({kLids}, [&](std::string_view name) {
        Line state;
        if (!host.Field({kLids, name, "/state"}, "state", state)) {
            return false;
        }
        answer.Add(state.view() == "open" ? "1" : "0");
        return true;
    });
}

bool Brightness(const Host& host, Line& answer) {
    return host.Any({kBacklights}, [&](std::string_view name) {
        std::int64_t level = 0;
        std::int64_t most = 0;
        if (!host.Number({kBacklights, name, "/brightness"}, level) ||
            !host.Number({kBacklights, name, "/max_brightness"}, most) || most <= 0) {
            return false;
        }
        answer.Add((level * 100 + most / 2) / most);
        return true;
    });
}

bool ExternalMonitors(const Host& host, Line& answer) {
    constexpr std::string_view kOwn[] = {"eDP", "LVDS", "DSI"};
    bool known = false;
    std::int64_t count = 0;
    host.Any({kScreens}, [&](std::string_view name) {
        Line state;
        if (!host.Read({kScreens, name, "/status"}, state)) {
            return false;
        }
        known = true;
        const bool own = std::any_of(std::begin(kOwn), std::end(kOwn),
                                     [&](std::string_view kind) { return name.find(kind) != std::string_view::npos; });
        count += !own && state.view() == "connected" ? 1 : 0;
        return false;
    });
    answer.Add(count);
    return known;
}

struct Ticks {
    std::int64_t all = 0;
    std::int64_t idle = 0;
};

Ticks CpuTicks(const Host& host) {
    Ticks ticks;
    Line line;
    host.Field({"/proc/stat"}, "cpu ", line);
    char* at = const_cast<char*>(line.c_str());
    for (int i = 0; i < 8; ++i) {
        const std::int64_t count = std::strtoll(at, &at, 10);
        ticks.all += count;
        ticks.idle += i == 3 || i == 4 ? count : 0;  // idle, and waiting for input or output
    }
    return ticks;
}

// In tenths of a percent, measured over a tenth of a second, for which the caller waits.
bool CpuUsage(const Host& host, std::int64_t& tenths) {
    const Ticks before = CpuTicks(host);
    const timespec whileMeasured{0, 100'000'000};
    nanosleep(&whileMeasured, nullptr);
    const Ticks after = CpuTicks(host);
    const std::int64_t all = after.all - before.all;
    if (all <= 0) {
        return false;
    }
    tenths = std::clamp<std::int64_t>(1000 - (after.idle - before.idle) * 1000 / all, 0, 1000);
    return true;
}

// In watts.
bool PowerLimit(const Host& host, std::string_view which, Line& answer) {
    return AddNumber(host, {"/sys/class/powercap/intel-rapl:0/constraint_", which, "_power_limit_uw"}, 1000000, answer);
}

constexpr HostRead kReads[] = {
    {"WMIGetHDDTemp",
     [](const Host& h, Line& a) {
         return Temperature(h, {"nvme", "drivetemp"}, a);
     }},
    {"WMIGetMonitorBrightness", Brightness},
    {"WMIGetExternMonitorNum", ExternalMonitors},
    {"WMIGetCPUUsg",
     [](const Host& h, Line& a) {
         std::int64_t tenths = 0;
         const bool known = CpuUsage(h, tenths);
         a.Add((tenths + 5) / 10);
         return known;
     }},
    {"CPU_ReadCPUUsage",
     [](const Host& h, Line& a) {
         std::int64_t tenths = 0;
         const bool known = CpuUsage(h, tenths);
         AddTenths(a, tenths);
         return known;
     }},
    {"Thermal_Read_Cpu_Temperature",
     [](const Host& h, Line& a) {
         return Temperature(h, {"coretemp", "k10temp", "zenpower", "cpu_thermal"}, a);
     }},
    {"Thermal_Read_GpuTS1L_Temperature",
     [](const Host& h, Line& a) {
         return Temperature(h, {"amdgpu", "nouveau", "radeon"}, a);
     }},
    {"Thermal_Read_BoardTS0L_Temperature", [](const Host& h, Line& a) { return Temperature(h, {"acpitz"}, a); }},
    {"Thermal_Read_CpuDptf_PowerLimit1", [](const Host& h, Line& a) { return PowerLimit(h, "0", a); }},
    {"Thermal_Read_CpuDptf_PowerLimit2", [](const Host& h, Line& a) { return PowerLimit(h, "1", a); }},
    {"Thermal_Read_Fan", Fans},
    {"Battery_Read_FullChargedCapcity", [](const Host& h, Line& a) { return Capacity(h, "full", a); }},
    {"Battery_Read_DesignedCapacity", [](const Host& h, Line& a) { return Capacity(h, "full_design", a); }},
    {"Battery_Read_Capacity", [](const Host& h, Line& a) { return Capacity(h, "now", a); }},
    {"Battery_Read_ChargingVoltage", [](const Host& h, Line& a) { return BatteryNumber(h, "voltage_now", 1000, a); }},
    {"Battery_Read_PackageVoltage", [](const Host& h, Line& a) { return BatteryNumber(h, "voltage_now", 1000, a); }},
    {"Battery_Read_CycleCount", [](const Host& h, Line& a) { return BatteryNumber(h, "cycle_count", 1, a); }},
    {"Battery_Read_CapacityPercentage", [](const Host& h, Line& a) { return BatteryNumber(h, "capacity", 1, a); }},
    {"Battery_Read_Temperature", [](const Host& h, Line& a) { return BatteryNumber(h, "temp", 10, a); }},
    {"Battery_Read_Current", Current},
    {"Battery_Read_ASOC", StateOfHealth},
    {"Battery_Read_ManufactureName",
     [](const Host& h, Line& a) {
         return InBattery(h, [&](std::string_view name) { return h.Read({kSupplies, name, "/manufacturer"}, a); });
     }},
    {"Battery_Get_LidStatus", LidOpen},
    {"Power_Read_ACDCMode", OnMains},
};

}  // namespace

std::span<const HostRead> SensorReads() {
    return kReads;
}

}  // namespace zorvalis
