// The registry of Windows.
//
// Kept: after a successful read or write the key's handle stays open for the life of the process.
#include "platform/registry.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <utility>

#include "base/text.h"
#include "platform/windows/handles.h"

namespace platform {
namespace {

constexpr std::size_t kTextCapacity = 255;  // units, the terminator included: a buffer of 510 bytes
constexpr DWORD kWatchedChanges =
    REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY;

HKEY root_key(RegistryRoot root) {
    return reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(root));
}

// Null on failure.
OwnedKey open_key(RegistryRoot root, const std::wstring& key, REGSAM access) {
    HKEY opened = nullptr;
    return OwnedKey(::RegOpenKeyExW(root_key(root), key.c_str(), 0, access, &opened) == ERROR_SUCCESS ? opened
                                                                                                      : nullptr);
}

bool read_value(RegistryRoot root, const std::wstring& key, const std::wstring& value, DWORD wanted, void* data,
                DWORD size) {
    OwnedKey opened = open_key(root, key, KEY_READ);
    DWORD type = REG_NONE;
    DWORD stored = 0;
    if (opened == nullptr ||
        ::RegQueryValueExW(opened.get(), value.c_str(), nullptr, &type, nullptr, &stored) != ERROR_SUCCESS ||
        type != wanted ||
        ::RegQueryValueExW(opened.get(), value.c_str(), nullptr, nullptr, static_cast<BYTE*>(data), &size) !=
            ERROR_SUCCESS) {
        return false;
    }
    opened.release();  // Kept: only a read that fails closes its key
    return true;
}

bool write_value(RegistryRoot root, const std::wstring& key, const std::wstring& value, DWORD type, const void* data,
                 DWORD size) {
    OwnedKey opened = open_key(root, key, KEY_WRITE);
    if (opened == nullptr) {
        HKEY made = nullptr;
        if (::RegCreateKeyExW(root_key(root), key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                              &made, nullptr) != ERROR_SUCCESS) {
            return false;
        }
        opened.reset(made);
    }
    if (::RegSetValueExW(opened.get(), value.c_str(), 0, type, static_cast<const BYTE*>(data), size) != ERROR_SUCCESS) {
        return false;
    }
    opened.release();  // Kept: open, as after a read
    return true;
}

std::wstring type_name(DWORD type) {
    constexpr const wchar_t* kNames[] = {L"REG_NONE",   L"REG_SZ",      L"REG_EXPAND_SZ",
                                         L"REG_BINARY", L"REG_DWORD",   L"REG_DWORD_BIG_ENDIAN",
                                         L"REG_LINK",   L"REG_MULTI_SZ"};
    return type < std::size(kNames) ? kNames[type] : std::to_wstring(type);
}

std::wstring value_text(DWORD type, const std::vector<BYTE>& data) {
    if (type == REG_SZ) {
        const auto* const text = reinterpret_cast<const wchar_t*>(data.data());
        return {text, ::wcsnlen(text, data.size() / sizeof(wchar_t))};
    }
    if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
        return std::to_wstring(*reinterpret_cast<const DWORD*>(data.data()));
    }
    return zorvalis::WidenBytes(zorvalis::Hexadecimal(data));
}

}  // namespace

bool read_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::wstring& data) {
    wchar_t buffer[kTextCapacity] = {};
    if (!read_value(root, key, value, REG_SZ, buffer, sizeof buffer)) {
        return false;
    }
    data.assign(buffer, ::wcsnlen(buffer, kTextCapacity));
    return true;
}

bool read_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t& data) {
    std::uint32_t number = 0;
    if (!read_value(root, key, value, REG_DWORD, &number, sizeof number)) {
        return false;
    }
    data = number;
    return true;
}

bool write_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                           const std::wstring& data) {
    const auto size = static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t));
    return write_value(root, key, value, REG_SZ, data.c_str(), size);
}

bool write_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t data) {
    return write_value(root, key, value, REG_DWORD, &data, sizeof data);
}

bool delete_registry_value(RegistryRoot root, const std::wstring& key, const std::wstring& value) {
    return ::RegDeleteKeyValueW(root_key(root), key.c_str(), value.c_str()) == ERROR_SUCCESS;
}

bool delete_registry_key(RegistryRoot root, const std::wstring& key) {
    return ::RegDeleteKeyW(root_key(root), key.c_str()) == ERROR_SUCCESS;
}

bool list_registry_key(RegistryRoot root, const std::wstring& key, std::vector<std::wstring>& subkeys,
                       std::vector<RegistryValue>& values) {
    subkeys.clear();
    values.clear();
    const OwnedKey opened = open_key(root, key, KEY_READ);
    DWORD longest_key = 0;
    DWORD longest_value = 0;
    DWORD longest_data = 0;
    if (opened == nullptr ||
        ::RegQueryInfoKeyW(opened.get(), nullptr, nullptr, nullptr, nullptr, &longest_key, nullptr, nullptr,
                           &longest_value, &longest_data, nullptr, nullptr) != ERROR_SUCCESS) {
        return false;
    }
    std::wstring name(std::max(longest_key, longest_value) + 1, L'\0');
    const auto capacity = static_cast<DWORD>(name.size());
    DWORD length = capacity;
    for (DWORD i = 0;
         ::RegEnumKeyExW(opened.get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, length = capacity) {
        subkeys.push_back(name.substr(0, length));
    }
    std::vector<BYTE> data(longest_data);
    DWORD type = REG_NONE;
    DWORD size = longest_data;
    length = capacity;
    for (DWORD i = 0;
         ::RegEnumValueW(opened.get(), i, name.data(), &length, nullptr, &type, data.data(), &size) == ERROR_SUCCESS;
         ++i, length = capacity, size = longest_data) {
        values.push_back(
            {name.substr(0, length), type_name(type), value_text(type, {data.data(), data.data() + size})});
    }
    std::sort(subkeys.begin(), subkeys.end());
    std::sort(values.begin(), values.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return true;
}

struct RegistryWatch::State {
    OwnedKey key;
    OwnedHandle changed;
};

RegistryWatch::RegistryWatch() = default;

RegistryWatch::~RegistryWatch() = default;

bool RegistryWatch::arm(RegistryRoot root, const std::wstring& key) {
    state_.reset();
    auto state = std::make_unique<State>();
    state->key = open_key(root, key, KEY_NOTIFY);
    if (state->key == nullptr) {
        return false;
    }
    state->changed.reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (state->changed == nullptr || ::RegNotifyChangeKeyValue(state->key.get(), TRUE, kWatchedChanges,
                                                               state->changed.get(), TRUE) != ERROR_SUCCESS) {
        return false;
    }
    state_ = std::move(state);
    return true;
}

void RegistryWatch::wait() {
    const std::unique_ptr<State> state = std::move(state_);
    if (state == nullptr) {
        return;
    }
    const bool failed = ::WaitForSingleObject(state->changed.get(), INFINITE) == WAIT_FAILED;
    // Kept: a failed wait leaves key and event open, and a key that cannot be closed leaves the event open.
    if (failed) {
        state->key.release();
        state->changed.release();
    } else if (::RegCloseKey(state->key.release()) != ERROR_SUCCESS) {
        state->changed.release();
    }
}

}  // namespace platform
