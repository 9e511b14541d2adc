#include "journal.h"

#include <oleauto.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace doubles {

namespace {

std::wstring beside(const wchar_t* name) {
    HMODULE own = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<const wchar_t*>(&beside), &own);
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(own, path, MAX_PATH);
    const std::wstring library = path;
    return library.substr(0, library.find_last_of(L'\\') + 1) + name;
}

}  // namespace

void write(const std::string& line) {
    std::string whole = line;
    std::replace(whole.begin(), whole.end(), '\n', ' ');
    whole += '\n';  // one write, so that processes and threads take turns
    const HANDLE file =
        ::CreateFileW(beside(L"journal.txt").c_str(), FILE_APPEND_DATA,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD written = 0;
    ::WriteFile(file, whole.data(), static_cast<DWORD>(whole.size()), &written, nullptr);
    ::CloseHandle(file);
    if (const HANDLE waiting = ::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"ZorvalisDoubles")) {
        ::SetEvent(waiting);
        ::CloseHandle(waiting);
    }
}

HRESULT failure(const std::string& name) {
    std::ifstream failures{std::filesystem::path(beside(L"fail.txt"))};
    std::string failing;
    for (unsigned long status = 0; failures >> failing >> std::hex >> status;) {
        if (failing == name) {
            return static_cast<HRESULT>(status);
        }
    }
    return S_OK;
}

HRESULT step(const std::string& name, const std::string& arguments) {
    write(name + arguments);
    return failure(name);
}

std::string text(const wchar_t* wide) {
    if (wide == nullptr) {
        return "null";
    }
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, narrow.data(), size, nullptr, nullptr);
    narrow.pop_back();
    return narrow;
}

std::string shown(const wchar_t* argument) {
    return " " + text(argument);
}

std::string shown(const VARIANT& value) {
    return value.vt == VT_EMPTY  ? " empty"
           : value.vt == VT_BSTR ? " \"" + text(value.bstrVal) + "\""
           : value.vt == VT_I4   ? number(value.lVal)
                                 : " variant" + number(value.vt);
}

std::string shown(const void* object) {
    return object == nullptr ? " null" : " object";
}

std::string text(const GUID& guid) {
    wchar_t wide[40] = {};
    ::StringFromGUID2(guid, wide, 40);
    return text(wide);
}

std::string number(long long value, const char* format) {
    char narrow[32];
    std::snprintf(narrow, sizeof narrow, format, value);
    return narrow;
}

}  // namespace doubles
