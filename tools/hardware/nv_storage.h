// The non-volatile storage behind the three pairs of record exports. Status 0 is success, 1 means that the machine has
// no such storage, any other is a failure.
#pragma once

#include <cstdint>

namespace zorvalis {

// A record is a UUID of 16 bytes, or a time as text with its terminator, 20 bytes. Blank storage has all bytes 0xFF.
enum class NvForm { uuid, text };

struct NvItem {
    NvForm form;
    const char* getter;
    const char* setter;
    const char* member;
};

inline constexpr NvItem kNvRandomUUID = {NvForm::uuid, "GPNV_Get_RandomUUID", "GPNV_Set_RandomUUID", "GPNV_RandomUUID"};
inline constexpr NvItem kNvActivatedTime = {NvForm::text, "GPNV_Get_ActivatedTime", "GPNV_Set_ActivatedTime",
                                            "GPNV_ActivatedTime"};
inline constexpr NvItem kNvManufacturedTime = {NvForm::text, "GPNV_Get_ManufacturedTime", "GPNV_Set_ManufacturedTime",
                                               "GPNV_ManufacturedTime"};

// `record` has the 16 or 20 bytes of the item's form; a text may be longer, up to 150 bytes. Both return the status.
std::int32_t ReadRecord(const NvItem& item, std::uint8_t* record);
std::int32_t WriteRecord(const NvItem& item, const std::uint8_t* record);

}  // namespace zorvalis
