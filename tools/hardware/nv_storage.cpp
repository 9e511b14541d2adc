// The records' texts in hardware.json, converted to the bytes of a record and back.
#include "nv_storage.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "hardware_file.h"
#include "json_text.h"

namespace zorvalis {
namespace {

// Statuses of a record's call, see nv_storage.h.
constexpr std::int32_t kNotThere = 1;
constexpr std::int32_t kFailed = -1;
constexpr int kRecordCapacity = 150;
constexpr std::size_t kTimeSize = 20;  // "2021-03-05 10:20:30" and its terminator

constexpr std::size_t kUuidSize = 16;
// Which byte of the record each pair of digits is: the first three fields are stored with their lowest byte first.
constexpr std::array<std::uint8_t, kUuidSize> kUuidOrder = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

bool IsDash(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

bool UuidFromText(std::string_view text, std::uint8_t* uuid) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<std::uint8_t, kUuidSize> bytes{};
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsDash(i) && text[i] == '-') {
            continue;
        }
        const char c = text[i] >= 'A' && text[i] <= 'F' ? static_cast<char>(text[i] | 0x20) : text[i];
        const std::size_t digit = kDigits.find(c);
        if (digit == std::string_view::npos || IsDash(i) || digits == 2 * kUuidSize) {
            return false;
        }
        std::uint8_t& byte = bytes[kUuidOrder[digits++ / 2]];
        byte = static_cast<std::uint8_t>(byte << 4 | digit);
    }
    if (text.size() != 36) {
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), uuid);
    return true;
}

void AddUuid(Line& text, const std::uint8_t* uuid) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (std::size_t i = 0; i < kUuidSize; ++i) {
        const std::uint8_t byte = uuid[kUuidOrder[i]];
        text.Add(i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "");
        text.Add({&kDigits[byte >> 4], 1}).Add({&kDigits[byte & 0xF], 1});
    }
}

// The status with which a member ends the call; 0 when the call may go on.
std::int32_t Refusal(const Answer& answer) {
    switch (answer.kind) {
        case Answer::Kind::missing:
            return kNotThere;
        case Answer::Kind::failed:
            return kFailed;
        default:
            return 0;
    }
}

// As Refusal, for the storage's own member, which must exist and must not be "fail".
std::int32_t StorageRefusal(const Answer& storage) {
    if (storage.kind == Answer::Kind::given && storage.value == "\"fail\"") {
        return kFailed;
    }
    return storage.value.empty() && storage.kind != Answer::Kind::failed ? kNotThere : Refusal(storage);
}

// The status of a call that succeeds: the number that its own member gives, or 0.
std::int32_t Status(const Answer& own) {
    std::uint32_t status = 0;
    if (!ReadInteger(own.result, status)) {
        ReadInteger(own.value, status);
    }
    return static_cast<std::int32_t>(status);
}

}  // namespace

std::int32_t ReadRecord(const NvItem& item, std::uint8_t* record) {
    HardwareFile file;
    const Answer own = file.Ask(item.getter);
    const Answer storage = file.Ask(item.member);
    const std::int32_t refusal = Refusal(own) != 0 ? Refusal(own) : StorageRefusal(storage);
    if (refusal != 0 || record == nullptr) {
        return refusal != 0 ? refusal : kNotThere;
    }
    std::array<char, kRecordCapacity> text{};
    CopyText(storage.value, text.data(), kRecordCapacity);
    if (std::string_view(text.data()) == "blank") {
        std::memset(record, 0xFF, item.form == NvForm::uuid ? kUuidSize : kTimeSize);
    } else if (item.form == NvForm::text) {
        std::memcpy(record, text.data(), std::strlen(text.data()) + 1);
    } else if (!UuidFromText(text.data(), record)) {
        return kFailed;
    }
    return Status(own);
}

std::int32_t WriteRecord(const NvItem& item, const std::uint8_t* record) {
    HardwareFile file(FileText::Purpose::change);
    const Answer own = file.Ask(item.setter);
    const std::int32_t refusal = Refusal(own) != 0 ? Refusal(own) : StorageRefusal(file.Ask(item.member));
    if (refusal != 0 || record == nullptr) {
        return refusal != 0 ? refusal : kNotThere;
    }
    const bool blank = item.form == NvForm::text
                           ? record[0] == 0xFF
                           : std::all_of(record, record + kUuidSize, [](std::uint8_t byte) { return byte == 0xFF; });
    Line text;
    if (blank) {
        text.Add("blank");
    } else if (item.form == NvForm::uuid) {
        AddUuid(text, record);
    } else {
        const char* const start = reinterpret_cast<const char*>(record);
        const void* const end = std::memchr(start, 0, kRecordCapacity - 1);
        text.Add({start, end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - start)
                                        : std::size_t{kRecordCapacity - 1}});
    }
    Line json;
    AddQuoted(json, text.view());
    return file.Store(item.member, json.view()) == HardwareFile::Stored::done ? Status(own) : kFailed;
}

}  // namespace zorvalis
