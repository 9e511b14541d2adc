// A value is a file in its key's folder: the type on the first line, then the data. Reads need no lock, since a write
// renames a whole file into place.
#include "platform/registry.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "base/text.h"
#include "platform/linux/registry_key.h"
#include "platform/linux/whole_file.h"
#include "platform/linux/wide.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr std::size_t kLongestText = 254;  // 16-bit units
constexpr int kAttempts = 1000;            // a write fails when another program deletes the key at that moment

struct ValueText {
    std::string type;
    std::string data;
};

bool read_value_file(int folder, const std::string& name, ValueText& value) {
    const Descriptor file(retry([&] { return ::openat(folder, name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    std::string text;
    if (!file || !read_whole(file.get(), text)) {
        return false;
    }
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    value.type = text.substr(0, end);
    value.data = text.substr(std::min(end + 1, text.size()));
    return true;
}

bool read_value(RegistryRoot root, const std::wstring& key, const std::wstring& value, ValueText& text) {
    const auto parts = key_parts(root, key);
    const std::string name = value_file(value);
    if (!parts || name.empty()) {
        return false;
    }
    if (read_value_file(AT_FDCWD, key_path(*parts) + "/" + name, text)) {
        return true;
    }
    // Perhaps it has the name in another case. That search lists the folder, which must not change meanwhile.
    const Descriptor folder = open_key(*parts, false);
    if (!folder || !lock_key_shared(folder.get())) {
        return false;
    }
    const auto found = find_entry(folder.get(), name, KeyEntry::value);
    return found && !found->empty() && read_value_file(folder.get(), *found, text);
}

bool write_value(RegistryRoot root, const std::wstring& key, const std::wstring& value, const std::string& text) {
    const auto parts = key_parts(root, key);
    const std::string name = value_file(value);
    if (!parts || name.empty()) {
        return false;
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const Descriptor folder = open_key(*parts, true);
        const int error = folder ? write_entry(folder.get(), name, text) : errno;
        if (error != ENOENT) {
            return error == 0;
        }
    }
    return false;
}

std::size_t utf16_length(const std::wstring& text) {
    const auto pairs = std::count_if(text.begin(), text.end(), [](wchar_t c) { return c > 0xFFFF; });
    return text.size() + static_cast<std::size_t>(pairs);
}

}  // namespace

bool read_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::wstring& data) {
    ValueText text;
    if (!read_value(root, key, value, text) || text.type != "REG_SZ") {
        return false;
    }
    auto wide = to_wide(text.data);
    if (!wide || utf16_length(*wide) > kLongestText) {
        return false;
    }
    data = wide->substr(0, wide->find(L'\0'));
    return true;
}

bool read_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t& data) {
    ValueText text;
    if (!read_value(root, key, value, text) || text.type != "REG_DWORD") {
        return false;
    }
    std::uint32_t number = 0;
    const char* const end = text.data.data() + text.data.size();
    const auto [stop, error] = std::from_chars(text.data.data(), end, number);
    if (error != std::errc() || stop != end) {
        return false;
    }
    data = number;
    return true;
}

bool write_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                           const std::wstring& data) {
    return write_value(root, key, value, "REG_SZ\n" + to_utf8(data) + "\n");
}

bool write_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t data) {
    return write_value(root, key, value, "REG_DWORD\n" + std::to_string(data) + "\n");
}

bool delete_registry_value(RegistryRoot root, const std::wstring& key, const std::wstring& value) {
    const auto parts = key_parts(root, key);
    const std::string name = value_file(value);
    if (!parts || name.empty()) {
        return false;
    }
    const Descriptor folder = open_key(*parts, false);
    if (!folder || !lock_key(folder.get())) {
        return false;
    }
    const auto found = find_entry(folder.get(), name, KeyEntry::value);
    return found && !found->empty() && ::unlinkat(folder.get(), found->c_str(), 0) == 0;
}

bool delete_registry_key(RegistryRoot root, const std::wstring& key) {
    auto parts = key_parts(root, key);
    if (!parts || parts->size() < 2) {
        return false;
    }
    const std::string name = parts->back();
    parts->pop_back();
    // The parent is locked first: subkeys are made and deleted only under the lock of their parent.
    const Descriptor parent = open_key(*parts, false);
    if (!parent || !lock_key(parent.get())) {
        return false;
    }
    const auto found = find_entry(parent.get(), name, KeyEntry::subkey);
    if (!found || found->empty()) {
        return false;
    }
    const Descriptor folder(::openat(parent.get(), found->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || !lock_key(folder.get())) {
        return false;
    }
    const auto entries = key_entries(folder.get());
    if (!entries || !entries->subkeys.empty()) {
        return false;
    }
    ::unlinkat(folder.get(), kTemporary, 0);
    for (const std::string& value : entries->values) {
        ::unlinkat(folder.get(), value.c_str(), 0);
    }
    return ::unlinkat(parent.get(), found->c_str(), AT_REMOVEDIR) == 0;
}

bool list_registry_key(RegistryRoot root, const std::wstring& key, std::vector<std::wstring>& subkeys,
                       std::vector<RegistryValue>& values) {
    subkeys.clear();
    values.clear();
    const auto parts = key_parts(root, key);
    const Descriptor folder = parts ? open_key(*parts, false) : Descriptor();
    const auto entries = folder ? key_entries(folder.get()) : std::nullopt;
    if (!entries) {
        return false;
    }
    for (const std::string& name : entries->subkeys) {
        subkeys.push_back(to_wide(name).value_or(L"?"));
    }
    for (const std::string& name : entries->values) {
        ValueText text;
        if (read_value_file(folder.get(), name, text)) {
            const auto data = to_wide(text.data);
            const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data.data());
            values.push_back({to_wide(name).value_or(L"?"), to_wide(text.type).value_or(L"?"),
                              data ? *data : zorvalis::WidenBytes(zorvalis::Hexadecimal({bytes, text.data.size()}))});
        }
    }
    std::sort(subkeys.begin(), subkeys.end());
    std::sort(values.begin(), values.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return true;
}

}  // namespace platform
