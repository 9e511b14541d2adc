// Names, long paths, files that others hold, and a file whose writer is killed.
#include <windows.h>

#include <sqlite3.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "common/files.h"
#include "kit.h"
#include "part.h"
#include "platform/files.h"
#include "platform/module.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "running_program.h"
#include "saved_value.h"
#include "steps_machine.h"
#include "store/db_file.h"
#include "upload/chunk_hash.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

using platform::OwnedHandle;

OwnedHandle Open(const std::string& path, DWORD sharing, DWORD access = GENERIC_READ | DELETE) {
    const HANDLE file =
        ::CreateFileW(platform::to_wide(path).c_str(), access, sharing, nullptr, OPEN_EXISTING, 0, nullptr);
    return OwnedHandle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

void Names(Findings& findings) {
    constexpr const char* kNames[] = {"NUL",     "nul",         "NUL.txt", "nul .txt", "COM1",     "com9.db",
                                      "LPT1",    "COM\xC2\xB9", "CON",     "PRN",      "AUX",      "CONIN$",
                                      "CONOUT$", "a.db.",       "a.db ",   "a. .",     "a:stream", "..\\a.db",
                                      "a/b",     "COM10",       "NULL",    "O_1_2.db", "console",  "a.b.c"};
    const std::string folder = "C:\\ProgramData";
    int changed = 0;
    for (const char* name : kNames) {
        wchar_t full[MAX_PATH] = {};
        ::GetFullPathNameW(platform::to_wide(folder + "\\" + name).c_str(), MAX_PATH, full, nullptr);
        const std::string path = platform::to_utf8(full);
        const bool elsewhere = path != folder + "\\" + name;
        changed += elsewhere ? 1 : 0;
        findings.Expect(!elsewhere || !IsBareFileName(name), std::string("\"") + name + "\": Windows opens " + path +
                                                                 ", the product " +
                                                                 (IsBareFileName(name) ? "takes it" : "refuses it"));
    }
    findings.Expect(IsBareFileName("O_1_2.db") && IsBareFileName("COM10") && changed > 4,
                    "ordinary names are taken, and Windows changes some of the others");
}

// Makes a folder so deep that a file in it has a path of `length` characters, and returns the path.
std::string LongPath(std::size_t length) {
    std::string path = WorkFolder::Path();
    while (path.size() + 60 < length) {
        path += "\\" + std::string(50, 'd');
        ::CreateDirectoryW(platform::to_wide("\\\\?\\" + path).c_str(), nullptr);
    }
    return path + "\\" + std::string(length - path.size() - 1, 'f');
}

// Writes, reads, renames and deletes with the product's functions: the letter of each act that was done.
int UseLongPath(const std::vector<std::string>& arguments) {
    const std::string path = LongPath(std::stoul(arguments.at(0)));
    const std::string other = path.substr(0, path.size() - 1) + "g";
    std::string done;
    done += platform::replace_text(path, "text") ? "w" : "";
    done += GetFileSize(path) == 4 ? "r" : "";
    done += platform::rename_file(path, other) && platform::file_exists(other) ? "n" : "";
    done += platform::remove_file(other) ? "d" : "";
    ::DeleteFileW(platform::to_wide("\\\\?\\" + path).c_str());
    Say(done);
    return 0;
}
const Part kUseLongPath("file-long", UseLongPath);

int TellFolder(const std::vector<std::string>&) {
    wchar_t path[260] = {};
    const int length = platform::module_file_name(path, 260);
    Say(std::to_string(length) + " " + std::to_string(getCurrentPath().size()));
    return 0;
}
const Part kTellFolder("file-folder", TellFolder);

constexpr wchar_t kFileSystem[] = L"SYSTEM\\CurrentControlSet\\Control\\FileSystem";
constexpr wchar_t kLongPaths[] = L"LongPathsEnabled";

void SetLongPaths(Findings& findings, DWORD value) {
    const LSTATUS status =
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kFileSystem, kLongPaths, REG_DWORD, &value, sizeof value);
    if (status != ERROR_SUCCESS) {
        findings.Fail("LongPathsEnabled can be set: " + ErrorText(static_cast<unsigned long>(status)));
    }
}

void RestoreLongPaths() {
    SavedValue::Restore(kFileSystem, kLongPaths);
    RemoveWorkFolder();
}

void LongPaths(Findings& findings) {
    const WorkFolder folder;
    const SavedValue saved(kFileSystem, kLongPaths);
    for (const DWORD allowed : {0, 1}) {
        SetLongPaths(findings, allowed);
        for (const int length : {259, 260, 300, 1000}) {
            // A process asks for the setting once.
            RunningProgram child(PartCommand("file-long", {std::to_string(length)}));
            const std::string done = child.Line();
            const std::string what = "LongPathsEnabled " + std::to_string(allowed) + ", a path of " +
                                     std::to_string(length) + " characters: \"" + done + "\" of \"wrnd\"";
            if (length < 260 || allowed == 1) {
                findings.Expect(done == "wrnd", what);
            } else {
                findings.Saw(what);
            }
        }
    }
    const std::string program = LongPath(300);
    if (::CopyFileW(platform::to_wide(KitFolder() + "\\zorv-acceptance.exe").c_str(),
                    platform::to_wide("\\\\?\\" + program).c_str(), FALSE) == FALSE) {
        findings.Impossible("the kit cannot be copied into a deep folder: " + ErrorText(::GetLastError()));
    }
    RunningProgram child(PartCommand("file-folder", {}, "\\\\?\\" + program));
    if (!child.started()) {
        findings.Saw("a program in a deep folder is not started: " + ErrorText(child.error()));
        return;
    }
    const std::string line = child.Line();
    std::string rest;
    DWORD code = 1;
    findings.Expect(child.Wait(20, rest, code) && code == 0 && line.starts_with("0 "),
                    "a program whose path is too long for the product goes on without it (" + line + ")");
}

// A file that is deleted while others have it open keeps its name until they close it.
void NameOfDeletedFile(Findings& findings, const std::string& path, const std::string& other) {
    WriteText(path, "text");
    WriteText(other, "text");
    OwnedHandle held = Open(other, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    FILE_DISPOSITION_INFO disposition = {TRUE};
    if (held == nullptr ||
        ::SetFileInformationByHandle(held.get(), FileDispositionInfo, &disposition, sizeof disposition) == FALSE) {
        findings.Impossible("a file cannot be marked for deletion: " + ErrorText(::GetLastError()));
    }
    // Newer versions of Windows may give the name at once. Either is well: the text is never lost.
    const bool given = platform::rename_file(path, other);
    findings.Saw(given ? "a name that a deleted file still has is given at once"
                       : "a name that a deleted file still has is not given");
    held.reset();
    findings.Expect((given || platform::rename_file(path, other)) && ReadText(other) == "text",
                    "it is given at the latest when that file is closed, and the text is under it");
}

void HeldFiles(Findings& findings) {
    const WorkFolder folder;
    const std::string path = WorkFolder::Path("held.txt");
    const std::string other = WorkFolder::Path("other.txt");
    WriteText(path, "text");
    struct {
        const char* what;
        DWORD sharing;
        bool (*act)(const std::string& path, const std::string& other);
    } const acts[] = {
        {"read", 0, [](const auto& file, const auto&) { return platform::open_file(file, "rb") != nullptr; }},
        {"written", 0, [](const auto& file, const auto&) { return platform::open_file(file, "rb+") != nullptr; }},
        {"replaced", FILE_SHARE_READ,
         [](const auto& file, const auto&) { return platform::replace_text(file, "new"); }},
        {"renamed", FILE_SHARE_READ | FILE_SHARE_WRITE,
         [](const auto& file, const auto& name) { return platform::rename_file(file, name); }},
        {"deleted", FILE_SHARE_READ | FILE_SHARE_WRITE,
         [](const auto& file, const auto&) { return platform::remove_file(file); }},
    };
    for (const auto& act : acts) {
        ULONGLONG took = 0;
        WriteText(path, "text");
        platform::remove_file(other);
        {
            const OwnedHandle held = Open(path, act.sharing, GENERIC_READ | GENERIC_WRITE);
            if (held == nullptr) {
                findings.Fail(path + " cannot be opened: " + ErrorText(::GetLastError()));
            }
            const ULONGLONG start = ::GetTickCount64();
            const bool done = act.act(path, other);
            took = ::GetTickCount64() - start;
            findings.Expect(!done && took >= 150 && took < 10000,
                            std::string("what another holds is not ") + act.what + ", after some time");
        }
        findings.Saw("it took " + std::to_string(took) + " ms");
        // Let go while the product waits: it may come too late for that, so there are several tries.
        bool inTime = false;
        for (int tries = 0; tries < 20 && !inTime; ++tries) {
            WriteText(path, "text");
            platform::remove_file(other);
            std::atomic<bool> gone = false;
            OwnedHandle held = Open(path, act.sharing, GENERIC_READ | GENERIC_WRITE);
            std::thread holder([&] {
                ::Sleep(50);
                gone = true;
                held.reset();
            });
            const bool wasHeld = !gone;
            inTime = act.act(path, other) && wasHeld;
            holder.join();
        }
        findings.Expect(inTime, std::string("it is ") + act.what + " when the other lets go meanwhile");
    }
    NameOfDeletedFile(findings, path, other);
}

void HeldWorkingCopy(Findings& findings) {
    const WorkFolder folder;
    TelemetryDb handle;
    handle.path = WorkFolder::Path("zorv-acceptance.db");
    decryptDBFast(handle, kDbKey);
    sqlite3* database = nullptr;
    const auto isMade = [&] {
        return sqlite3_open(handle.cachedPath.c_str(), &database) == SQLITE_OK &&
               sqlite3_exec(database, "CREATE TABLE made(a); INSERT INTO made VALUES(7)", nullptr, nullptr, nullptr) ==
                   SQLITE_OK &&
               sqlite3_close(database) == SQLITE_OK;
    };
    if (!isMade()) {
        findings.Fail("a database cannot be made in " + handle.cachedPath);
    }
    encryptDBFast(handle, kDbKey);
    findings.Expect(decryptDBFast(handle, kDbKey) && sqlite3_open(handle.cachedPath.c_str(), &database) == SQLITE_OK &&
                        sqlite3_exec(database, "SELECT * FROM made", nullptr, nullptr, nullptr) == SQLITE_OK,
                    "a connection has the working copy open");
    findings.Expect(!platform::remove_file(handle.cachedPath), "it is not deleted");
    findings.Expect(!decryptDBFast(handle, kDbKey), "another cycle does not begin while a stranger holds it");
    OpenWorkingCopies().insert("zorv-acceptance.db.cached");
    findings.Expect(decryptDBFast(handle, kDbKey), "a copy that this process holds itself is written over");
    OpenWorkingCopies().clear();
    findings.Expect(sqlite3_exec(database, "SELECT * FROM made", nullptr, nullptr, nullptr) == SQLITE_OK,
                    "and is a whole database");
    sqlite3_close(database);
}

// Replaces the text of a file by so much that the writing takes a moment.
int WriteLong(const std::vector<std::string>& arguments) {
    const std::string text(std::stoul(arguments.at(1)) << 20, 'x');
    Say("begins");
    return platform::replace_text(arguments.at(0), text) ? 0 : 1;
}
const Part kWriteLong("file-write", WriteLong);

// Whether the folder lists the file. Asking for a file that goes with its process is refused.
bool IsListed(const std::string& path) {
    WIN32_FIND_DATAW found;
    const HANDLE search = ::FindFirstFileW(platform::to_wide(path).c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        ::FindClose(search);
    }
    return search != INVALID_HANDLE_VALUE;
}

void KilledWriter(Findings& findings) {
    const WorkFolder folder;
    const std::string path = WorkFolder::Path("setting.json");
    std::size_t megabytes = 64;
    for (int tries = 0; tries < 6; ++tries) {
        RunningProgram writer(PartCommand("file-write", {path, std::to_string(megabytes)}));
        if (writer.Line() != "begins") {
            findings.Fail("the writer does not begin: " + ErrorText(writer.error()));
        }
        bool listed = false;
        for (const ULONGLONG limit = ::GetTickCount64() + 20000; !listed && ::GetTickCount64() < limit;) {
            listed = IsListed(path);
        }
        if (!listed) {
            findings.Fail("the file does not appear");
        }
        const bool readable = Open(path, 7, GENERIC_READ) != nullptr;
        writer.Kill();
        findings.Saw("killed while it wrote " + std::to_string(megabytes) + " MB");
        const auto whole = static_cast<std::int64_t>(megabytes << 20);
        // A scanner that has the file open keeps its name for a moment.
        Until(5, [&] { return !IsListed(path) || GetFileSize(path) == whole; });
        if (!IsListed(path)) {
            findings.Saw(readable ? "others could open it meanwhile" : "others could not open it meanwhile");
            findings.Expect(!platform::file_exists(path), "the file went with its process");
            return;
        }
        const std::int64_t left = GetFileSize(path);
        findings.Saw("a file of " + std::to_string(left) + " bytes is left");
        if (left == whole) {
            megabytes *= 2;  // the writer was faster
        } else if (left != 0) {
            findings.Fail("half of a text is left");
        }  // an empty file: killed between making and marking it
        platform::remove_file(path);
    }
    findings.Fail("in no try was the writer killed while it wrote, or the file is left empty each time");
}

void Digests(Findings& findings) {
    const WorkFolder folder;
    const std::string path = WorkFolder::Path("digest.bin");
    struct {
        std::string text;
        const char* digest;
    } const files[] = {{"", "d41d8cd98f00b204e9800998ecf8427e"},
                       {"abc", "900150983cd24fb0d6963f7d28e17f72"},
                       {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"}};
    for (const auto& file : files) {
        WriteText(path, file.text);
        std::optional<std::string> digest;
        createMD5forFile(path, digest);
        findings.ExpectText(digest.value_or("none"), file.digest, std::to_string(file.text.size()) + " bytes: MD5");
    }
}

}  // namespace

std::vector<Step> FileSteps() {
    return {
        {"7.7", "Names that Windows takes for something else are refused", Names, 60, nullptr, false},
        {"7.8", "Paths beyond 260 characters work where LongPathsEnabled is 1", LongPaths, 90, RestoreLongPaths, false},
        {"7.9", "A file that another program holds is waited for a quarter of a second", HeldFiles, 90,
         RemoveWorkFolder, false},
        {"7.10", "A working copy that a connection holds is not deleted, and is written over", HeldWorkingCopy, 60,
         RemoveWorkFolder, false},
        {"7.11", "A new file goes when its process is ended before the text is in it", KilledWriter, 120,
         RemoveWorkFolder, false},
        {"7.12", "Windows' provider computes the digests of files", Digests, 60, RemoveWorkFolder, false},
    };
}

}  // namespace zorvalis::acceptance
