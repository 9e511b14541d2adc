#include "platform/files.h"

#include <windows.h>

#include <algorithm>

#include "platform/windows/busy_file.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

bool has_attributes(const std::string& path, DWORD mask, DWORD wanted) {
    const DWORD attributes = ::GetFileAttributesW(to_wide(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & mask) == wanted;
}

bool write_at(HANDLE file, const std::string& text, std::int64_t at) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(at);
    place.OffsetHigh = static_cast<DWORD>(at >> 32);
    DWORD written = 0;
    return ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, &place) != FALSE &&
           written == text.size();
}

bool cut_at(HANDLE file, std::int64_t size) {
    LARGE_INTEGER end;
    end.QuadPart = size;
    return ::SetFilePointerEx(file, end, nullptr, FILE_BEGIN) != FALSE && ::SetEndOfFile(file) != FALSE;
}

}  // namespace

File open_file(const std::string& path, const char* mode) {
    const std::wstring name = to_wide(path);
    File file;
    done_in_time(name, [&] {
        file.reset(::_wfopen(name.c_str(), to_wide(mode).c_str()));
        return file != nullptr;
    });
    return file;
}

std::int64_t seek_to_end(std::FILE* file) {
    return ::_fseeki64(file, 0, SEEK_END) == 0 ? ::_ftelli64(file) : -1;
}

bool copy_bytes(std::FILE* from, std::FILE* to, std::int64_t most, std::uint8_t key) {
    for (std::int64_t copied = 0; copied < most; ++copied) {
        const int byte = _getc_nolock(from);
        if (byte == EOF) {
            break;
        }
        if (_putc_nolock(byte ^ key, to) == EOF) {
            return false;
        }
    }
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

bool replace_text(const std::string& path, const std::string& text) {
    const std::wstring name = to_wide(path);
    HANDLE file = INVALID_HANDLE_VALUE;
    const auto open = [&] {
        file = ::CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
        return file != INVALID_HANDLE_VALUE;
    };
    if (!done_in_time(name, open)) {
        return false;
    }
    LARGE_INTEGER old{};
    bool whole = ::GetFileSizeEx(file, &old) != FALSE;
    const auto size = static_cast<std::int64_t>(text.size());
    if (old.QuadPart > 0 && size > old.QuadPart) {
        whole = whole && write_at(file, std::string(size - old.QuadPart, ' '), old.QuadPart);
    }
    std::string over = text;
    over.resize(std::max<std::int64_t>(size, old.QuadPart), ' ');
    whole = whole && write_at(file, over, 0) && cut_at(file, size);
    whole = ::CloseHandle(file) != FALSE && whole;
    if (!whole) {
        remove_file(path);
    }
    return whole;
}

bool file_exists(const std::string& path) {
    return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY, 0);
}

bool folder_exists(const std::string& path) {
    return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
}

bool is_link(const std::string& path) {
    // Behind a closing backslash the link's target would be looked at.
    const std::string link = path.substr(0, path.find_last_not_of('\\') + 1);
    return has_attributes(link, FILE_ATTRIBUTE_REPARSE_POINT, FILE_ATTRIBUTE_REPARSE_POINT);
}

bool create_folder(const std::string& path) {
    return ::CreateDirectoryW(to_wide(path).c_str(), nullptr) != FALSE;
}

bool remove_file(const std::string& path) {
    const std::wstring name = to_wide(path);
    return done_in_time(name, [&] { return ::DeleteFileW(name.c_str()) != FALSE; });
}

bool rename_file(const std::string& from, const std::string& to) {
    const std::wstring source = to_wide(from), target = to_wide(to);
    return done_in_time(source, [&] { return ::MoveFileW(source.c_str(), target.c_str()) != FALSE; });
}

std::uint32_t list_folder(const std::string& folder, std::vector<FolderEntry>& entries) {
    entries.clear();
    if (folder.empty()) {
        return ERROR_PATH_NOT_FOUND;  // with the pattern alone the system would list the drive's root
    }
    WIN32_FIND_DATAW found;
    const HANDLE search = ::FindFirstFileW(to_wide(folder + "\\*").c_str(), &found);
    DWORD error = search == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
    while (error == ERROR_SUCCESS) {
        const std::wstring_view name = found.cFileName;
        if (name != L"." && name != L"..") {
            entries.push_back({to_utf8(name), (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
        }
        if (!::FindNextFileW(search, &found)) {
            error = ::GetLastError();
        }
    }
    ::FindClose(search);  // of a failed search too, where it does nothing
    return error == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : error;
}

std::string native_path(const std::string& path) {
    return path;
}

}  // namespace platform
