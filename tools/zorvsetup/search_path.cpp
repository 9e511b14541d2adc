#include "search_path.h"

#include <windows.h>

#include <vector>

#include "platform/text.h"
#include "platform/windows/handles.h"
#include "report.h"

namespace zorvalis {
namespace {

constexpr wchar_t kEnvironment[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr std::size_t kLongest = 8191;  // what cmd.exe takes; with a longer one it would find no program any more

struct Path {
    platform::OwnedKey key;
    DWORD type = REG_EXPAND_SZ;
    std::wstring text;
    bool usable = true;
};

Path ReadPath() {
    Path path;
    HKEY key = nullptr;
    const LSTATUS error = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kEnvironment, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, &key);
    if (error != ERROR_SUCCESS) {
        Fail("the machine's PATH cannot be opened", error);
    }
    path.key.reset(key);
    DWORD size = 0;
    if (::RegQueryValueExW(key, L"Path", nullptr, &path.type, nullptr, &size) == ERROR_FILE_NOT_FOUND) {
        path.type = REG_EXPAND_SZ;
        return path;
    }
    std::wstring text(size / sizeof(wchar_t), L'\0');
    path.usable = (path.type == REG_SZ || path.type == REG_EXPAND_SZ) &&
                  ::RegQueryValueExW(key, L"Path", nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size) ==
                      ERROR_SUCCESS;
    path.text = text.substr(0, text.find(L'\0'));
    return path;
}

// Between semicolons outside of quotes.
std::vector<std::wstring> EntriesOf(const std::wstring& text) {
    std::vector<std::wstring> entries(1);
    bool quoted = false;
    for (const wchar_t c : text) {
        quoted = quoted != (c == L'"');
        if (c == L';' && !quoted) {
            entries.emplace_back();
        } else {
            entries.back() += c;
        }
    }
    return entries;
}

bool Names(const std::wstring& entry, const std::wstring& folder) {
    std::wstring plain;
    for (const wchar_t c : entry) {
        plain += c == L'"' ? L"" : std::wstring(1, c);
    }
    wchar_t expanded[32768] = L"";
    ::ExpandEnvironmentStringsW(plain.c_str(), expanded, static_cast<DWORD>(std::size(expanded)));
    plain = expanded;
    while (!plain.empty() && (plain.back() == L'\\' || plain.back() == L' ')) {
        plain.pop_back();
    }
    return ::CompareStringOrdinal(plain.c_str(), -1, folder.c_str(), -1, TRUE) == CSTR_EQUAL;
}

void Write(const Path& path, const std::wstring& text) {
    const LSTATUS error =
        ::RegSetValueExW(path.key.get(), L"Path", 0, path.type, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    if (error != ERROR_SUCCESS) {
        Fail("the machine's PATH cannot be written", error);
    }
    // Programs that are asked take the new one at once; one that hangs is passed over.
    ::SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(L"Environment"),
                          SMTO_ABORTIFHUNG, 1000, nullptr);
}

}  // namespace

bool AddToPath(const std::wstring& folder) {
    const Path path = ReadPath();
    const std::string name = platform::to_utf8(folder);
    if (!path.usable) {
        Say("the machine's PATH is no text, and is left alone: zorvctl is called with its folder, " + name);
        return false;
    }
    for (const std::wstring& entry : EntriesOf(path.text)) {
        if (Names(entry, folder)) {
            return false;
        }
    }
    const bool separates = !path.text.empty() && path.text.back() != L';';
    const std::wstring text = path.text + (separates ? L";" : L"") + folder;
    if (text.size() > kLongest || folder.find(L';') != std::wstring::npos) {
        Say("the machine's PATH cannot take this folder, and is left alone: zorvctl is called with its folder, " +
            name);
        return false;
    }
    Write(path, text);
    Say("added to the machine's PATH: " + name);
    return true;
}

bool RemoveFromPath(const std::wstring& folder) {
    const Path path = ReadPath();
    std::wstring text;
    bool found = false, first = true;
    for (const std::wstring& entry : EntriesOf(path.text)) {
        if (Names(entry, folder)) {
            found = true;
        } else {
            text += (first ? L"" : L";") + entry;
            first = false;
        }
    }
    if (!path.usable || !found) {
        return false;
    }
    Write(path, text);
    Say("taken out of the machine's PATH: " + platform::to_utf8(folder));
    return true;
}

}  // namespace zorvalis
