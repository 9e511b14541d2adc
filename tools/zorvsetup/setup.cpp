#include "setup.h"

#include <windows.h>

#include <set>
#include <vector>

#include "common/registry.h"
#include "event_source.h"
#include "files.h"
#include "folders.h"
#include "notes.h"
#include "passes.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/windows/wide.h"
#include "purge.h"
#include "report.h"
#include "search_path.h"
#include "service_entry.h"

namespace zorvalis {
namespace {

using std::chrono::seconds;

constexpr seconds kStart(60), kPass(60);
constexpr std::int64_t kDay = 24 * 60 * 60;
constexpr char kSince[] = "since", kRan[] = "ran", kService[] = "service", kSource[] = "source",
               kAdded[] = "addedToPath", kRemoved[] = "removedFromPath", kMade[] = "madeFolders";

std::wstring FolderOf(const std::wstring& path) {
    return path.substr(0, path.rfind(L'\\'));
}

std::wstring FullFolder(const std::wstring& given) {
    // A backslash before the closing quote of a command line is taken for a quote within the text.
    const std::wstring plain = given.substr(0, given.find(L'"'));
    wchar_t full[32768] = L"";
    const DWORD length = ::GetFullPathNameW(plain.c_str(), static_cast<DWORD>(std::size(full)), full, nullptr);
    std::wstring folder(full, length < std::size(full) ? length : 0);
    while (!folder.empty() && folder.back() == L'\\') {
        folder.pop_back();
    }
    return folder;
}

// Whether the file has the name of our service's. Service or task may have been changed to run another program that
// starts ours, such as cmd.exe: that one is not to be ended, and its folder is to stay on PATH.
bool IsOurs(const std::wstring& executable) {
    const std::wstring wanted = FolderOf(executable) + L"\\" + ZORV_SERVICE_FILE;
    return ::CompareStringOrdinal(executable.c_str(), -1, wanted.c_str(), -1, TRUE) == CSTR_EQUAL;
}

// All that may be running: what the service's entry names, and what the tasks start.
std::set<std::wstring> Executables() {
    std::set<std::wstring> paths = ExecutablesOfTasks();
    if (const auto entry = ReadEntry()) {
        paths.insert(ExecutableOf(entry->command));
    }
    std::erase_if(paths, [](const std::wstring& path) { return !IsOurs(path); });
    for (const std::wstring& path : std::set(paths)) {
        paths.insert(FolderOf(path) + L"\\zorvctl.exe");
    }
    return paths;
}

void EndAll(seconds limit) {
    const std::set<std::wstring> executables = Executables();
    StopService(limit);
    DeleteTasks();
    EndPasses(executables, std::min(limit, kPass));
    DeleteTasks();
    if (IsServiceRunning()) {
        Fail("the service was started again meanwhile", ERROR_SERVICE_ALREADY_RUNNING);
    }
}

void NoteEntryAndSource(Notes& notes) {
    const auto entry = ReadEntry();
    notes.Add(kService, entry ? ToJson(*entry) : Json());
    const auto source = ReadEventSource();
    notes.Add(kSource, source ? Json(platform::to_utf8(*source)) : Json());
}

void TakeOutOfPath(const std::wstring& executable, Notes& notes) {
    const std::wstring folder = FolderOf(executable);
    if (IsOurs(executable) && !IsOfWindows(folder) && RemoveFromPath(folder)) {
        notes.Add(kRemoved, platform::to_utf8(folder));
    }
}

}  // namespace

void CheckWindows() {
    constexpr unsigned kOldest = 17763;  // Windows 10, version 1809
    constexpr wchar_t kVersion[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    std::wstring build;
    platform::read_registry_string(kLocalMachine, kVersion, L"CurrentBuildNumber", build);
    if (std::wcstoul(build.c_str(), nullptr, 10) < kOldest) {
        Fail("Zorvalis needs a 64-bit Windows 10, version 1809 (build 17763), or later; this is build " +
                 (build.empty() ? "unknown" : platform::to_utf8(build)),
             ERROR_OLD_WIN_VERSION);
    }
    Say("this Windows, build " + platform::to_utf8(build) + ", will do");
}

void Stop(seconds limit) {
    if (const auto entry = ReadEntry()) {
        const std::wstring executable = ExecutableOf(entry->command), folder = FolderOf(executable);
        if (IsOurs(executable) && !IsOfWindows(folder)) {
            RequireReplaceable(folder);
        }
    }
    Notes notes;
    // With a service that runs this is a new installation; else it may be one that was broken off, or made twice.
    const bool runs = IsServiceRunning();
    const std::int64_t now = platform::now_seconds();
    if (runs || !notes.Has(kSince) || std::abs(now - notes.Get(kSince).get<std::int64_t>()) > kDay) {
        notes.Clear();
    }
    notes.Add(kSince, now);
    notes.Add(kRan, runs);
    EndAll(limit);
}

void Configure(std::wstring given) {
    const std::wstring folder = FullFolder(given), executable = folder + L"\\" + ZORV_SERVICE_FILE;
    if (!platform::file_exists(platform::to_utf8(executable))) {
        Fail("there is no " + platform::to_utf8(executable), ERROR_FILE_NOT_FOUND);
    }
    Notes notes;
    NoteEntryAndSource(notes);
    Json made = Json::array();
    for (const std::wstring& each : PrepareFolders()) {
        made.push_back(platform::to_utf8(each));
    }
    notes.Add(kMade, made);
    const auto old = ReadEntry();
    ServiceEntry entry = WantedEntry(executable);
    if (old && old->startType == SERVICE_DISABLED) {
        entry.startType = SERVICE_DISABLED;
        Say("the service is disabled, and stays so");
    }
    WriteEntry(entry);
    Say("registered the service " + platform::to_utf8(executable));
    if (old) {
        const std::wstring before = ExecutableOf(old->command);
        if (::CompareStringOrdinal(FolderOf(before).c_str(), -1, folder.c_str(), -1, TRUE) != CSTR_EQUAL) {
            Say("the service was taken over from " + platform::to_utf8(old->command));
            TakeOutOfPath(before, notes);
        }
    }
    WriteEventSource(executable);
    if (AddToPath(folder)) {
        notes.Add(kAdded, platform::to_utf8(folder));
    }
}

void Start() {
    StartService(kStart);
}

void Remove(bool purge) {
    Notes notes;
    NoteEntryAndSource(notes);
    const auto entry = ReadEntry();
    const auto source = ReadEventSource();
    const std::wstring executable = entry ? ExecutableOf(entry->command) : source.value_or(L"");
    EndAll(kPass);
    DeleteEntry();
    DeleteEventSource();
    TakeOutOfPath(executable, notes);
    Say("removed the service, its tasks and its event source");
    if (purge) {
        notes.Clear();  // no later step may put the service back, even when something cannot be deleted
        PurgeRecords();
    }
}

void Undo() {
    Notes notes;
    if (!notes.Has(kService)) {
        return Say("there is nothing to put back");
    }
    Attempts all;
    const auto restore = [&](const char* name, const auto& step) {
        if (notes.Has(name)) {
            all.Make([&] { step(notes.Get(name)); });
        }
    };
    const auto text = [](const Json& json) { return platform::to_wide(json.get<std::string>()); };
    all.Make([] { EndAll(kPass); });
    restore(kService, [](const Json& old) { old.is_null() ? DeleteEntry() : WriteEntry(FromJson(old)); });
    restore(kSource, [&](const Json& old) { old.is_null() ? DeleteEventSource() : WriteEventSource(text(old)); });
    restore(kAdded, [&](const Json& added) { RemoveFromPath(text(added)); });
    restore(kRemoved, [&](const Json& removed) { AddToPath(text(removed)); });
    restore(kMade, [&](const Json& made) {
        std::vector<std::wstring> folders;
        for (const Json& folder : made) {
            folders.push_back(text(folder));
        }
        DeleteEmptyFolders(folders);
    });
    all.Finish();
    Say("put service, event source and PATH back");
}

void Resume() {
    Notes notes;
    if (notes.Has(kRan) && notes.Get(kRan) == true) {
        StartService(kStart);
    }
    notes.Clear();
}

void Commit() {
    Notes().Clear();
}

}  // namespace zorvalis
