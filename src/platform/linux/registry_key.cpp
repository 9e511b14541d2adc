// Keys are found first by the path as it is given, and only then, part by part, in any case of letters.
#include "platform/linux/registry_key.h"

#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <wctype.h>

#include <algorithm>
#include <array>

#include "platform/linux/machine_path.h"
#include "platform/linux/whole_file.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

constexpr char kRegistryFolder[] = "registry";

// Names with a leading dot are reserved for temporary files (and are "." and "..").
bool is_name(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

// In upper case, for comparing.
std::wstring folded(const std::string& name) {
    // Never freed. On a host without this locale only ASCII letters are compared without case.
    static const locale_t kLocale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    std::wstring text = to_wide(name).value_or(L"");
    for (wchar_t& c : text) {
        const wint_t wide = static_cast<char32_t>(c);
        c = static_cast<wchar_t>(kLocale != nullptr ? ::towupper_l(wide, kLocale) : ::towupper(wide));
    }
    return text;
}

// In any case of letters. Names that differ in an ASCII letter, as most do, are told apart without the locale, which
// takes a dozen calls to load.
bool same_name(const std::string& a, const std::string& b) {
    const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
    const auto [x, y] = std::mismatch(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](char left, char right) { return upper(left) == upper(right); });
    const auto is_ascii = [](auto at, auto end) { return at == end || static_cast<unsigned char>(*at) < 0x80; };
    return is_ascii(x, a.end()) && is_ascii(y, b.end()) ? x == a.end() && y == b.end() : folded(a) == folded(b);
}

bool is_kind(int folder, const char* name, KeyEntry kind) {
    struct stat status {};
    return ::fstatat(folder, name, &status, 0) == 0 &&
           (kind == KeyEntry::subkey ? S_ISDIR(status.st_mode) : S_ISREG(status.st_mode));
}

// As in the entry, DT_DIR and so on. Asks the kernel about the entry itself only for a link, and where the file
// system's listings do not tell kinds.
unsigned kind_of(int folder, const dirent64& entry) {
    struct stat status {};
    const bool told = entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN;
    return told || ::fstatat(folder, entry.d_name, &status, 0) != 0 ? entry.d_type : IFTODT(status.st_mode);
}

Descriptor open_folder(int base, const char* name) {
    return Descriptor(retry([=] { return ::openat(base, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// Not open, with errno set, when there is no such subkey in any case of letters.
Descriptor open_subkey(int folder, const std::string& name) {
    Descriptor subkey = open_folder(folder, name.c_str());
    if (subkey || !lock_key_shared(folder)) {
        return subkey;
    }
    const auto found = find_entry(folder, name, KeyEntry::subkey);
    if (found && found->empty()) {
        errno = ENOENT;
    }
    return found && !found->empty() ? open_folder(folder, found->c_str()) : Descriptor();
}

Descriptor make_subkey(int folder, const std::string& name) {
    if (!lock_key(folder)) {
        return Descriptor();
    }
    const auto found = find_entry(folder, name, KeyEntry::subkey);
    if (!found || (found->empty() && ::mkdirat(folder, name.c_str(), 0777) != 0)) {
        return Descriptor();
    }
    return open_folder(folder, found->empty() ? name.c_str() : found->c_str());
}

}  // namespace

std::optional<KeyParts> key_parts(RegistryRoot root, const std::wstring& key) {
    if (root != RegistryRoot::local_machine) {
        return std::nullopt;
    }
    KeyParts parts = {"HKEY_LOCAL_MACHINE"};
    for (std::size_t start = 0; !key.empty() && start <= key.size();) {
        const std::size_t end = std::min(key.find(L'\\', start), key.size());
        parts.push_back(to_utf8(std::wstring_view(key).substr(start, end - start)));
        if (!is_name(parts.back())) {
            return std::nullopt;
        }
        start = end + 1;
    }
    return parts;
}

std::string value_file(const std::wstring& value) {
    std::string name = to_utf8(value);
    return is_name(name) ? name : "";
}

std::optional<KeyEntries> key_entries(int folder) {
    KeyEntries entries;
    alignas(dirent64) std::array<char, 8192> buffer;
    for (bool begun = false;;) {
        const ssize_t size = ::getdents64(folder, buffer.data(), buffer.size());
        if (size == 0 && !begun && ::lseek(folder, 0, SEEK_SET) == 0) {
            begun = true;  // the descriptor has been listed before, and stood at the end
            continue;
        }
        if (size <= 0) {
            return size == 0 ? std::optional(std::move(entries)) : std::nullopt;
        }
        begun = true;
        for (ssize_t at = 0; at < size;) {
            const auto& entry = *reinterpret_cast<const dirent64*>(buffer.data() + at);
            at += entry.d_reclen;
            if (!is_name(entry.d_name)) {
                continue;
            }
            const unsigned kind = kind_of(folder, entry);
            if (kind == DT_DIR || kind == DT_REG) {
                (kind == DT_DIR ? entries.subkeys : entries.values).emplace_back(entry.d_name);
            }
        }
    }
}

std::optional<std::string> find_entry(int folder, const std::string& name, KeyEntry kind) {
    const auto entries = key_entries(folder);
    if (!entries) {
        return std::nullopt;
    }
    const auto& names = kind == KeyEntry::subkey ? entries->subkeys : entries->values;
    if (std::find(names.begin(), names.end(), name) != names.end()) {
        return name;
    }
    const auto found = std::find_if(names.begin(), names.end(), [&](const auto& one) { return same_name(one, name); });
    return found == names.end() ? "" : *found;
}

int write_entry(int folder, const std::string& name, const std::string& text) {
    if (!lock_key(folder)) {
        return errno;
    }
    const Descriptor file(retry(
        [&] { return ::openat(folder, kTemporary, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666); }));
    if (!file) {
        return errno;
    }
    // Mostly the name is there as it is given, and the folder need not be listed.
    const auto found =
        is_kind(folder, name.c_str(), KeyEntry::value) ? name : find_entry(folder, name, KeyEntry::value);
    if (!found || !write_whole(file.get(), text) ||
        ::renameat(folder, kTemporary, folder, found->empty() ? name.c_str() : found->c_str()) != 0) {
        const int error = errno;
        ::unlinkat(folder, kTemporary, 0);
        return error == ENOENT ? EIO : error;
    }
    return 0;
}

std::string key_path(const KeyParts& parts) {
    std::string path = machine_path(kRegistryFolder);
    for (const std::string& part : parts) {
        path.append("/").append(part);
    }
    return path;
}

Descriptor open_key(const KeyParts& parts, bool make) {
    Descriptor key = open_folder(AT_FDCWD, key_path(parts).c_str());  // mostly the names are in the case of the folders
    const std::string registry = key ? "" : machine_path(kRegistryFolder);
    if (key || (make && !make_folders(registry))) {
        return key;
    }
    key = open_folder(AT_FDCWD, registry.c_str());
    for (const std::string& part : parts) {
        if (!key) {
            break;
        }
        Descriptor subkey = open_subkey(key.get(), part);
        if (!subkey && make) {
            subkey = make_subkey(key.get(), part);
        }
        key = std::move(subkey);
    }
    return key;
}

bool lock_key(int folder) {
    return retry([=] { return ::flock(folder, LOCK_EX); }) == 0;
}

bool lock_key_shared(int folder) {
    return retry([=] { return ::flock(folder, LOCK_SH); }) == 0;
}

}  // namespace platform
