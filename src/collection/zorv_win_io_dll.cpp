#include "collection/zorv_win_io_dll.h"

#include <cstring>
#include <cwchar>

#include "common/log.h"

namespace zorvalis {

std::string NarrowText(const NarrowBuffer& buffer) {
    return std::string(buffer.data(), strnlen(buffer.data(), buffer.size()));
}

ZorvWinIoDll::ZorvWinIoDll(bool reports) : library_(kHardwareLibrary), reports_(reports) {
    if (auto* const initialize = library_.function<std::int32_t()>("InitializeWinIo")) {
        initialize();  // Kept: its result is ignored, and reads are made after a failure too
    } else if (reports_) {
        ReportServiceEvent(L" InitWinIo fail ", kWarning);
    }
}

ZorvWinIoDll::~ZorvWinIoDll() {
    if (auto* const shutdown = library_.function<void()>("ShutdownWinIo")) {
        shutdown();
    } else if (reports_) {
        ReportServiceEvent(L" ShutDown WinIop fail ", kWarning);
    }
}

// `missing` is the result when the library does not have the export.
template <class Result, class... Arguments>
Result ZorvWinIoDll::Call(const char* name, Result missing, Arguments... arguments) const {
    auto* const function = library_.function<Result(Arguments...)>(name);
    return function != nullptr ? function(arguments...) : missing;
}

template <class Char, class... Arguments>
void ZorvWinIoDll::Fill(const char* name, Char* buffer, Arguments... arguments) const {
    auto* const function = library_.function<void(Char*, Arguments...)>(name);
    if (function != nullptr && buffer != nullptr) {
        function(buffer, arguments...);
    }
}

std::int32_t ZorvWinIoDll::CallRecord(const char* name, void* record) const {
    return record != nullptr ? Call<std::int32_t>(name, 1, record) : 1;
}

bool ZorvWinIoDll::Exports(const char* name) const {
    return library_.function<void()>(name) != nullptr;
}

std::uint32_t ZorvWinIoDll::ReadInteger(const char* name) {
    return Call<std::uint32_t>(name, 0);
}

double ZorvWinIoDll::ReadDouble(const char* name) {
    return Call<double>(name, 0.0);
}

float ZorvWinIoDll::ReadFloat(const char* name) {
    return Call<float>(name, 0.0F);
}

void ZorvWinIoDll::ReadNarrow(const char* name, char* buffer) {
    Fill(name, buffer);
}

void ZorvWinIoDll::ReadWide(const char* name, wchar_t* buffer) {
    Fill(name, buffer);
}

std::int32_t ZorvWinIoDll::ReadFlagged(const char* name, std::uint8_t flag) {
    return Call<std::int32_t>(name, 0, flag);
}

std::uint8_t ZorvWinIoDll::ReadFlaggedByte(const char* name, std::uint8_t flag) {
    return Call<std::uint8_t>(name, 0, flag);
}

void ZorvWinIoDll::ReadWide(const char* name, wchar_t* buffer, std::uint8_t flag) {
    Fill(name, buffer, flag);
}

// The export returns a boolean of one byte. Read as a wider integer, it would carry random upper bits.
std::uint8_t ZorvWinIoDll::WMICheckBatteryHealthSupport(std::uint8_t flag) {
    return ReadFlaggedByte("WMICheckBatteryHealthSupport", flag);
}

std::int32_t ZorvWinIoDll::WMISetBatteryHealth(std::int32_t mode, std::uint8_t flag) {
    return Call<std::int32_t>("WMISetBatteryHealth", 0, mode, flag);
}

std::uint8_t ZorvWinIoDll::WMICheckQuietFanSupport(std::uint8_t flag) {
    return ReadFlaggedByte("WMICheckQuietFanSupport", flag);
}

std::int32_t ZorvWinIoDll::WMISetQuietFan(std::uint8_t on, std::uint8_t flag) {
    return Call<std::int32_t>("WMISetQuietFan", 0, on, flag);
}

std::int32_t ZorvWinIoDll::WMISetAppPath(const wchar_t* path, std::uint8_t flag) {
    return Call<std::int32_t>("WMISetAppPath", 0, path, flag);
}

void ZorvWinIoDll::WMIGetSystemChassisTypes(wchar_t* buffer, std::uint8_t flag) {
    ReadWide("WMIGetSystemChassisTypes", buffer, flag);
}

void ZorvWinIoDll::WMIGetProductName(wchar_t* buffer, std::uint8_t flag) {
    ReadWide("WMIGetProductName", buffer, flag);
}

void ZorvWinIoDll::WMIGetWiFiCardName(wchar_t* buffer, std::uint8_t flag) {
    ReadWide("WMIGetWiFiCardName", buffer, flag);
}

std::int32_t ZorvWinIoDll::GPNV_Get_RandomUUID(void* record) {
    return CallRecord("GPNV_Get_RandomUUID", record);
}

std::int32_t ZorvWinIoDll::GPNV_Set_RandomUUID(void* record) {
    return CallRecord("GPNV_Set_RandomUUID", record);
}

std::int32_t ZorvWinIoDll::GPNV_Get_ActivatedTime(void* record) {
    return CallRecord("GPNV_Get_ActivatedTime", record);
}

std::int32_t ZorvWinIoDll::GPNV_Set_ActivatedTime(void* record) {
    return CallRecord("GPNV_Set_ActivatedTime", record);
}

std::int32_t ZorvWinIoDll::GPNV_Get_ManufacturedTime(void* record) {
    return CallRecord("GPNV_Get_ManufacturedTime", record);
}

std::int32_t ZorvWinIoDll::GPNV_Set_ManufacturedTime(void* record) {
    return CallRecord("GPNV_Set_ManufacturedTime", record);
}

std::uint32_t ZorvWinIoDll::EC_ReadEcChipId() {
    return ReadInteger("EC_ReadEcChipId");
}

std::uint32_t ZorvWinIoDll::EC_ReadEcChipName() {
    return ReadInteger("EC_ReadEcChipName");
}

std::uint32_t ZorvWinIoDll::EC_ReadEcFwRev() {
    return ReadInteger("EC_ReadEcFwRev");
}

std::uint32_t ZorvWinIoDll::GetIoDllVersion() {
    return ReadInteger("GetIoDllVersion");
}

std::uint32_t ZorvWinIoDll::GetDriverVersion() {
    return ReadInteger("GetDriverVersion");
}

void ZorvWinIoDll::App_Get_UWPApp(wchar_t* buffer) {
    ReadWide("App_Get_UWPApp", buffer);
}

}  // namespace zorvalis
