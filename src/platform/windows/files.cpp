// Files by Win32 and the C runtime. What is refused because another program holds the file is tried again
// (busy_file.h).
#include "platform/files.h"

#include <windows.h>

#include <algorithm>

#include "platform/windows/busy_file.h"
#include "platform/windows/handles.h"
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

// Sets whether Windows deletes the file when its last handle is closed.
bool delete_with_handle(HANDLE file, bool deletes) {
    FILE_DISPOSITION_INFO disposition{deletes};
    return ::SetFileInformationByHandle(file, FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
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
    OwnedHandle file;
    bool fresh = false;
    const auto open = [&] {
        const HANDLE opened = ::CreateFileW(name.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (opened == INVALID_HANDLE_VALUE) {
            return false;
        }
        fresh = ::GetLastError() != ERROR_ALREADY_EXISTS;
        file.reset(opened);
        return true;
    };
    if (!done_in_time(name, open)) {
        return false;
    }
    // A new file is marked for deletion until its text is written: if the process ends, Windows deletes it.
    LARGE_INTEGER old{};
    bool whole = (!fresh || delete_with_handle(file.get(), true)) && ::GetFileSizeEx(file.get(), &old) != FALSE;
    const auto size = static_cast<std::int64_t>(text.size());
    if (old.QuadPart > 0 && size > old.QuadPart) {
        whole = whole && write_at(file.get(), std::string(size - old.QuadPart, ' '), old.QuadPart);
    }
    std::string over = text;
    over.resize(std::max<std::int64_t>(size, old.QuadPart), ' ');
    whole = whole && write_at(file.get(), over, 0) && cut_at(file.get(), size) &&
            (!fresh || delete_with_handle(file.get(), false));
    if (!whole) {
        delete_with_handle(file.get(), true);
    }
    return whole;
}

bool file_exists(const std::string& path) {
    return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY, 0);
}

bool folder_exists(const std::string& path) {
    return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
}

bool path_exists(const std::string& path) {
    return has_attributes(path, 0, 0);
}

bool is_link(const std::string& path) {
    // With a backslash at the end Windows would look at the link's target.
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
    return done_in_time(source, [&] {
        if (::MoveFileW(source.c_str(), target.c_str()) != FALSE) {
            return true;
        }
        // A target that was deleted while somebody has it open still exists and refuses its attributes. It goes soon,
        // so the error is turned into one that is_busy tries again.
        const DWORD error = ::GetLastError();
        const bool leaves = error == ERROR_ALREADY_EXISTS &&
                            ::GetFileAttributesW(target.c_str()) == INVALID_FILE_ATTRIBUTES &&
                            ::GetLastError() == ERROR_ACCESS_DENIED;
        ::SetLastError(leaves ? ERROR_SHARING_VIOLATION : error);
        return false;
    });
}

std::uint32_t list_folder(const std::string& folder, std::vector<FolderEntry>& entries) {
    entries.clear();
    if (folder.empty()) {
        return ERROR_PATH_NOT_FOUND;  // for "\*" alone Windows would list the drive's root
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
    ::FindClose(search);  // does nothing when the search did not begin
    return error == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : error;
}

std::string native_path(const std::string& path) {
    return path;
}

}  // namespace platform
