#include "saved_value.h"

#include <windows.h>

#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kit.h"
#include "platform/text.h"

namespace zorvalis::acceptance {
namespace {

std::string NameOf(const std::wstring& value) {
    return "value " + platform::to_utf8(value);
}

// What is kept: the type as four bytes, then the data; the type alone, as kMissing, for a value that is not there.
constexpr DWORD kMissing = 0xFFFFFFFF;

std::string Read(const std::wstring& key, const std::wstring& value) {
    DWORD type = kMissing;
    std::vector<char> data(1 << 16);
    auto size = static_cast<DWORD>(data.size());
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value.c_str(), RRF_RT_ANY | RRF_NOEXPAND,
                                          &type, data.data(), &size);
    if (status == ERROR_FILE_NOT_FOUND) {
        type = kMissing;
        size = 0;
    } else if (status != ERROR_SUCCESS) {
        throw std::runtime_error("a registry value cannot be saved: " + ErrorText(static_cast<unsigned long>(status)));
    }
    return std::string(reinterpret_cast<const char*>(&type), sizeof type) + std::string(data.data(), size);
}

// What is kept goes only when the value is as it was. Nothing kept is a success.
LSTATUS PutBack(const std::wstring& key, const std::wstring& value) {
    const std::string kept = Kept(NameOf(value));
    DWORD type = 0;
    if (kept.size() < sizeof type) {
        return ERROR_SUCCESS;
    }
    std::memcpy(&type, kept.data(), sizeof type);
    LSTATUS status = ERROR_SUCCESS;
    if (type != kMissing) {
        status = ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), value.c_str(), type, kept.data() + sizeof type,
                                   static_cast<DWORD>(kept.size() - sizeof type));
    } else if (status = ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), value.c_str());
               status == ERROR_FILE_NOT_FOUND) {
        status = ERROR_SUCCESS;
    }
    if (status == ERROR_SUCCESS) {
        Forget(NameOf(value));
    }
    return status;
}

}  // namespace

SavedValue::SavedValue(std::wstring key, std::wstring value) : key_(std::move(key)), value_(std::move(value)) {
    Restore(key_, value_);
    Keep(NameOf(value_), Read(key_, value_));
}

SavedValue::~SavedValue() {
    PutBack(key_, value_);  // what cannot be put back stays kept, for --restore
}

void SavedValue::Restore(const std::wstring& key, const std::wstring& value) {
    if (const LSTATUS status = PutBack(key, value); status != ERROR_SUCCESS) {
        throw std::runtime_error("the " + NameOf(value) +
                                 " cannot be put back: " + ErrorText(static_cast<unsigned long>(status)));
    }
}

}  // namespace zorvalis::acceptance
