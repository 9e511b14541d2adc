// Files and folders. Paths are UTF-8 in the system's own form, "C:\ProgramData\..." with backslashes; on the
// stand-in machine such a path lies in the machine's folder, and any other path is the host's own.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace platform {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// `mode` as for fopen; null on failure. A file belongs to one thread at a time.
File open_file(const std::string& path, const char* mode);

// Moves to the end and returns the position there, which is the size; -1 on failure.
std::int64_t seek_to_end(std::FILE* file);

// Byte by byte through the C library's buffers, each byte exclusive-ored with `key`: up to `most` bytes, or to the end
// of `from`. False for a byte that cannot be read, or written through to the system.
bool copy_bytes(std::FILE* from, std::FILE* to, std::int64_t most, std::uint8_t key);

// Puts `text` in the place of what the file holds, in place: room is made with blanks behind the old text, one write
// goes over all of it, and what is left over is cut. A process that is killed in between leaves the old text or the new
// one whole, perhaps with blanks behind it. A new file has its name only with its text, or goes with its process until
// then; only on a Linux file system without unnamed files does a kill leave it empty. False when not all came through:
// the file is then gone, or as it was when it could not even be opened.
bool replace_text(const std::string& path, const std::string& text);

bool file_exists(const std::string& path);                         // a file, no folder
bool folder_exists(const std::string& path);                       // a closing backslash is allowed
bool is_link(const std::string& path);                             // the last part; not followed
bool create_folder(const std::string& path);                       // one level
bool remove_file(const std::string& path);                         // never a folder
bool rename_file(const std::string& from, const std::string& to);  // fails when `to` exists

struct FolderEntry {
    std::string name;
    bool folder;
};

// All entries of a folder but "." and "..", and on Linux those with a backslash. The result is 0 or the system's error.
std::uint32_t list_folder(const std::string& folder, std::vector<FolderEntry>& entries);

// The path as other libraries of this process open it, in UTF-8.
std::string native_path(const std::string& path);

}  // namespace platform
