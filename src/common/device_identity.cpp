// The device's UUID and serial number, and the board's GUID (ZorvWinIoDll::wmiGetBoardUUID).
#include "common/device_identity.h"

#include <algorithm>
#include <cwchar>
#include <string_view>

#include "base/text.h"
#include "collection/zorv_win_io_dll.h"
#include "common/log.h"
#include "common/registry.h"
#include "platform/uuid.h"

namespace zorvalis {
namespace {

// Writes the UUID to the registry and returns it as text.
std::string KeepCopy(const platform::Uuid& uuid, const char* words) {
    const std::wstring text = platform::uuid_to_text(uuid);
    std::string result = NarrowBytes(text);
    LogMessage(words + result);
    WriteRegString(kLocalMachine, kConfigKey, L"RandomUUID", text);
    return result;
}

// Windows and Linux differ about it, and so do locales: a fixed list gives the same text everywhere.
bool IsWhiteSpace(wchar_t c) {
    constexpr std::wstring_view kOthers = L" \u0085\u00A0\u1680\u2028\u2029\u202F\u205F\u3000";
    return (c >= L'\t' && c <= L'\r') || (c >= L'\u2000' && c <= L'\u200A') ||
           kOthers.find(c) != std::wstring_view::npos;
}

}  // namespace

std::string getDeviceUUID() {
    ZorvWinIoDll zorvWinIoDll;
    platform::Uuid uuid{};
    if (zorvWinIoDll.GPNV_Get_RandomUUID(uuid.data()) != 0) {
        WriteRegDword(kLocalMachine, kConfigKey, L"NvramFail", 1);
        const std::wstring copy = ReadRegString(kLocalMachine, kConfigKey, L"RandomUUID");
        if (copy != ERROR_READREG) {
            return NarrowBytes(copy);
        }
        // Kept: this one is in the registry only. When the storage works again, the UUID is another.
        return KeepCopy(platform::create_uuid(), "[getDeviceUUID] uuid: ");
    }
    // Storage that was never written holds 0xFF in every byte.
    const bool blank = std::all_of(uuid.begin(), uuid.end(), [](std::uint8_t byte) { return byte == 0xFF; });
    if (blank) {
        uuid = platform::create_uuid();
        if (zorvWinIoDll.GPNV_Set_RandomUUID(uuid.data()) != 0) {
            WriteRegDword(kLocalMachine, kConfigKey, L"NvramFail", 1);
        }
        return KeepCopy(uuid, "[getDeviceUUID] UuidCreate: ");
    }
    return KeepCopy(uuid, "[getDeviceUUID] uuid: ");
}

std::string getSerialNumber() {
    LogMessage("zorvWinIoDll.wmiGetSN(serial_number,true) start");
    ZorvWinIoDll zorvWinIoDll;
    WideBuffer buffer{};
    zorvWinIoDll.ReadWide("WMIGetSN", buffer.data(), 1);
    std::wstring text = WideText(buffer);
    std::erase(text, L' ');
    std::string result = NarrowBytes(text);
    WriteRegString(kLocalMachine, kConfigKey, L"SN", WidenBytes(result));
    LogMessage("zorvWinIoDll.wmiGetSN(serial_number,true) end");
    return result;
}

void ZorvWinIoDll::wmiGetBoardUUID(wchar_t* buffer, std::uint8_t flag) {
    if (buffer == nullptr) {
        return;
    }
    std::wstring cached = ReadRegString(kLocalMachine, kProductKey, L"GUID");
    if (cached == ERROR_READREG) {
        if (!Exports("WMIGetBoardUUID")) {
            return;
        }
        ReadWide("WMIGetBoardUUID", buffer, flag);
        WriteRegString(kLocalMachine, kProductKey, L"GUID", std::wstring(buffer, wcsnlen(buffer, kTextCapacity)));
        return;
    }
    std::erase_if(cached, IsWhiteSpace);
    // The caller has zeroed the buffer, so the text ends with a NUL.
    cached.copy(buffer, kTextCapacity - 1);
}

}  // namespace zorvalis
