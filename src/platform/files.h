// Files and folders. Paths are UTF-8. The core writes them as on Windows, "C:\ProgramData\..."; on the stand-in machine
// a path on C: lies in the machine's folder, and any other path is one of the Linux host. Any thread.
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

// `mode` as for fopen; null on failure. Only one thread at a time may use a file: the C library's lock is left out.
File open_file(const std::string& path, const char* mode);

// Moves to the end and returns the position there, which is the size; -1 on failure.
std::int64_t seek_to_end(std::FILE* file);

// Copies at most `most` bytes, or up to the end of `from`, each exclusive-ored with `key`, and flushes the C library's
// buffer. False when reading, writing or flushing fails.
bool copy_bytes(std::FILE* from, std::FILE* to, std::int64_t most, std::uint8_t key);

// Replaces the file's text in place: blanks are appended until the new text fits, one write covers the whole file, and
// what is left over is cut off. A process that is killed meanwhile leaves the old text or the new one whole, perhaps
// followed by blanks. A file that did not exist appears together with its text (Windows deletes it with the process
// until then); only a Linux file system without unnamed files (O_TMPFILE) can be left with an empty one. False on
// failure: the file has been deleted, or is unchanged when it could not be opened.
bool replace_text(const std::string& path, const std::string& text);

bool file_exists(const std::string& path);                         // false for a folder
bool folder_exists(const std::string& path);                       // a closing backslash is allowed
bool path_exists(const std::string& path);                         // anything; a link, wherever it leads
bool is_link(const std::string& path);                             // whether the last part is a link or junction
bool create_folder(const std::string& path);                       // one level; false when it exists
bool remove_file(const std::string& path);                         // false for a folder
bool rename_file(const std::string& from, const std::string& to);  // fails when `to` exists

struct FolderEntry {
    std::string name;
    bool folder;
};

// All entries of a folder but "." and "..", on Linux also without names that hold a backslash, which would be read as a
// path. 0, or a Windows error number, with the entries found so far.
std::uint32_t list_folder(const std::string& folder, std::vector<FolderEntry>& entries);

// The same path as the operating system knows it, for libraries that open files themselves (SQLite). UTF-8.
std::string native_path(const std::string& path);

}  // namespace platform
