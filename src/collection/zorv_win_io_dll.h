// The closed hardware library, loaded by name for the life of one object. Every export is looked up at each call; when
// the library or the export is missing, the call returns the default that stands below. Each user makes an object of
// its own; that several are alive at once, on several threads, is the library's to handle. An exception that leaves an
// export ends the process.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>

#include "platform/library.h"

namespace zorvalis {

// Texts are read into buffers of this many characters. The exports take no length: that their texts fit is up to the
// library.
constexpr std::size_t kTextCapacity = 150;
using WideBuffer = std::array<wchar_t, kTextCapacity>;
using NarrowBuffer = std::array<char, kTextCapacity>;

// A buffer's text, up to its first NUL.
template <std::size_t size>
std::wstring WideText(const std::array<wchar_t, size>& buffer) {
    return std::wstring(buffer.data(), wcsnlen(buffer.data(), size));
}
std::string NarrowText(const NarrowBuffer& buffer);

inline constexpr wchar_t kHardwareLibrary[] = L"ZorvWinIo64.dll";

class ZorvWinIoDll {
public:
    // Loads and initialises the library; shuts it down and unloads it. Only that one of these two exports is missing is
    // reported, to the event log; not even that without `reports`, for zorvctl, which writes nothing.
    explicit ZorvWinIoDll(bool reports = true);
    ~ZorvWinIoDll();

    bool Exports(const char* name) const;

    // One for each shape of an export. When it is missing they return 0, or leave the text buffer as it is. `flag` goes
    // to the library as it stands; the product passes 1, but 0 in samples of class W.
    std::uint32_t ReadInteger(const char* name);
    double ReadDouble(const char* name);
    float ReadFloat(const char* name);
    void ReadNarrow(const char* name, char* buffer);
    void ReadWide(const char* name, wchar_t* buffer);
    std::int32_t ReadFlagged(const char* name, std::uint8_t flag);
    std::uint8_t ReadFlaggedByte(const char* name, std::uint8_t flag);
    void ReadWide(const char* name, wchar_t* buffer, std::uint8_t flag);

    // The board's GUID: the copy in the registry, else the library's answer, which is copied there. The caller zeroes
    // `buffer`, of kTextCapacity characters. Defined in common/device_identity.cpp.
    void wmiGetBoardUUID(wchar_t* buffer, std::uint8_t flag);

    std::uint8_t WMICheckBatteryHealthSupport(std::uint8_t flag);
    std::int32_t WMISetBatteryHealth(std::int32_t mode, std::uint8_t flag);
    std::uint8_t WMICheckQuietFanSupport(std::uint8_t flag);
    std::int32_t WMISetQuietFan(std::uint8_t on, std::uint8_t flag);
    std::int32_t WMISetAppPath(const wchar_t* path, std::uint8_t flag);

    void WMIGetSystemChassisTypes(wchar_t* buffer, std::uint8_t flag);
    void WMIGetProductName(wchar_t* buffer, std::uint8_t flag);
    void WMIGetWiFiCardName(wchar_t* buffer, std::uint8_t flag);

    // Records in the machine's non-volatile storage; their layout is the library's (a UUID has 16 bytes). 0 for
    // success, 1 also for a missing export or a null record.
    std::int32_t GPNV_Get_RandomUUID(void* record);
    std::int32_t GPNV_Set_RandomUUID(void* record);
    std::int32_t GPNV_Get_ActivatedTime(void* record);
    std::int32_t GPNV_Set_ActivatedTime(void* record);
    std::int32_t GPNV_Get_ManufacturedTime(void* record);
    std::int32_t GPNV_Set_ManufacturedTime(void* record);

    // Kept: nothing in the product calls these.
    std::uint32_t EC_ReadEcChipId();
    std::uint32_t EC_ReadEcChipName();
    std::uint32_t EC_ReadEcFwRev();
    std::uint32_t GetIoDllVersion();
    std::uint32_t GetDriverVersion();
    void App_Get_UWPApp(wchar_t* buffer);

private:
    template <class Result, class... Arguments>
    Result Call(const char* name, Result missing, Arguments... arguments) const;
    template <class Char, class... Arguments>
    void Fill(const char* name, Char* buffer, Arguments... arguments) const;
    std::int32_t CallRecord(const char* name, void* record) const;

    platform::SharedLibrary library_;
    const bool reports_;
};

}  // namespace zorvalis
