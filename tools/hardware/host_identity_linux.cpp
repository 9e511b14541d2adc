// What the host is: firmware, processor, memory, disks, network cards, system.
#include <algorithm>
#include <cstdlib>

#include "host_linux.h"

namespace zorvalis {
namespace {

constexpr std::string_view kBlocks = "/sys/block/";
constexpr std::string_view kNetworks = "/sys/class/net/";

bool BiosDate(const Host& host, Line& answer) {
    Line text;
    if (!host.Read({"/sys/class/dmi/id/bios_date"}, text) || text.view().size() != 10) {
        return false;
    }
    const char* const date = text.view().data();  // 03/05/2021
    answer.Add({date + 6, 4}).Add("-").Add({date, 2}).Add("-").Add({date + 3, 2});
    return true;
}

// The firmware's chassis number as a word; all portable kinds but the tablet are "Notebook".
bool Chassis(const Host& host, Line& answer) {
    std::int64_t type = 0;
    if (!host.Number({"/sys/class/dmi/id/chassis_type"}, type)) {
        return false;
    }
    const auto isOf = [type](std::initializer_list<int> kinds) {
        return std::find(kinds.begin(), kinds.end(), type) != kinds.end();
    };
    // Notebooks: portable, laptop, notebook, sub notebook, convertible, detachable.
    answer.Add(isOf({8, 9, 10, 14, 31, 32})    ? "Notebook"
               : type == 30                    ? "Tablet"
               : isOf({3, 4, 5, 6, 7, 13, 35}) ? "Desktop"
               : isOf({17, 23, 28})            ? "Server"
                                               : "Other");
    return true;
}

bool MemorySize(const Host& host, Line& answer) {
    Line total;
    if (!host.Field({"/proc/meminfo"}, "MemTotal", total)) {
        return false;
    }
    // MemTotal, in KiB, lacks what the kernel keeps for itself, so it is rounded up to whole gigabytes.
    answer.Add((std::strtoll(total.c_str(), nullptr, 10) + 1048575) / 1048576).Add(" GB");
    return true;
}

enum class DiskPart { model, size, both };

// Lists the fixed disks that spin, or do not, or all. False only when the host has no disk at all: an empty list is an
// answer too. Sizes are in 10^9 bytes.
bool Disks(const Host& host, Line& answer, bool spinning, bool still, DiskPart part) {
    bool known = false;
    host.Any({kBlocks}, [&](std::string_view name) {
        Line model;
        std::int64_t size = 0;
        if (!host.Exists({kBlocks, name, "/device"}) || !host.Is({kBlocks, name, "/removable"}, "0") ||
            !host.Number({kBlocks, name, "/size"}, size)) {
            return false;
        }
        known = true;
        const bool spins = host.Is({kBlocks, name, "/queue/rotational"}, "1");
        const bool named = host.Read({kBlocks, name, "/device/model"}, model);
        if (!(spins ? spinning : still) || (part == DiskPart::model && !named)) {
            return false;
        }
        NextItem(answer);
        if (part != DiskPart::size) {
            answer.Add(model.view());
        }
        if (part != DiskPart::model) {
            answer.Add(part == DiskPart::both && named ? " " : "").Add(size / 1953125).Add(" GB");
        }
        return false;
    });
    return known;
}

// The driver's name and, for a PCI card, its vendor and device number: the host keeps no better name.
bool WiFiCard(const Host& host, Line& answer) {
    return host.Any({kNetworks}, [&](std::string_view name) {
        if ((!host.Exists({kNetworks, name, "/phy80211"}) && !host.Exists({kNetworks, name, "/wireless"})) ||
            !host.Field({kNetworks, name, "/device/uevent"}, "DRIVER=", answer)) {
            return false;
        }
        Line numbers;
        if (host.Field({kNetworks, name, "/device/uevent"}, "PCI_ID=", numbers)) {
            answer.Add(" ").Add(numbers.view());
        }
        return true;
    });
}

bool MacAddress(const Host& host, Line& answer) {
    return host.Any({kNetworks}, [&](std::string_view name) {
        return host.Exists({kNetworks, name, "/device"}) && host.Read({kNetworks, name, "/address"}, answer);
    });
}

constexpr HostRead kReads[] = {
    {"WMIGetModelName", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_name"}, a); }},
    {"WMIGetProductName", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_name"}, a); }},
    {"WMIGetComputerFamilyName",
     [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_family"}, a); }},
    {"WMIGetSN", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_serial"}, a); }},
    {"WMIGetBoardUUID", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_uuid"}, a); }},
    {"WMIGet90Number", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/product_sku"}, a); }},
    {"WMIGetBiosVersion", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/bios_version"}, a); }},
    {"WMIGetBiosManufacture", [](const Host& h, Line& a) { return h.Read({"/sys/class/dmi/id/bios_vendor"}, a); }},
    {"WMIGetBiosReleaseDate", BiosDate},
    {"WMIGetSystemChassisTypes", Chassis},
    {"WMIGetCPUInfo", [](const Host& h, Line& a) { return h.Field({"/proc/cpuinfo"}, "model name", a); }},
    {"WMIGetOSInfo", [](const Host& h, Line& a) { return h.Field({"/etc/os-release"}, "PRETTY_NAME=", a); }},
    {"WMIGetMemSize", MemorySize},
    {"WMIGetHDDModel", [](const Host& h, Line& a) { return Disks(h, a, true, false, DiskPart::model); }},
    {"WMIGetSSDModel", [](const Host& h, Line& a) { return Disks(h, a, false, true, DiskPart::model); }},
    {"WMIGetHDDCaption", [](const Host& h, Line& a) { return Disks(h, a, true, true, DiskPart::model); }},
    {"WMIGetHDDSize", [](const Host& h, Line& a) { return Disks(h, a, true, true, DiskPart::size); }},
    {"WMIGetHDDInfo", [](const Host& h, Line& a) { return Disks(h, a, true, true, DiskPart::both); }},
    {"WMIGetWiFiCardName", WiFiCard},
    {"WMIGetMacAddress", MacAddress},
};

}  // namespace

std::span<const HostRead> IdentityReads() {
    return kReads;
}

}  // namespace zorvalis
