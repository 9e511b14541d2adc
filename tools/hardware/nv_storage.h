// Non-volatile storage behind the three pairs of record exports. A status of 0 is success, 1 a storage that is not
// there, anything else a failure.
#pragma once

#include <cstdint>

namespace zorvalis {

// Blank storage is all bytes 0xFF: the 16 of a UUID, or as many as a time text takes.
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

std::int32_t ReadRecord(const NvItem& item, std::uint8_t* record);
std::int32_t WriteRecord(const NvItem& item, const std::uint8_t* record);

}  // namespace zorvalis
