#include "windows/doubles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/machine.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kLibrary[] = L"doubles.dll";
constexpr DWORD kPatience = 30000;

void inject(HANDLE process, const std::wstring& library) {
    const SIZE_T size = (library.size() + 1) * sizeof(wchar_t);
    void* const there = ::VirtualAllocEx(process, nullptr, size, MEM_COMMIT, PAGE_READWRITE);
    ::WriteProcessMemory(process, there, library.c_str(), size, nullptr);
    const auto load = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(&::LoadLibraryW));
    const HANDLE thread = ::CreateRemoteThread(process, nullptr, 0, load, there, 0, nullptr);
    DWORD loaded = 0;
    ::WaitForSingleObject(thread, kPatience);
    ::GetExitCodeThread(thread, &loaded);
    ::CloseHandle(thread);
    if (loaded == 0) {
        throw std::runtime_error("the doubles cannot be loaded");
    }
}

}  // namespace

Doubles::Doubles(std::string bin_folder)
    : folder_(std::move(bin_folder)), written_(::CreateEventW(nullptr, FALSE, FALSE, L"ZorvalisDoubles")) {
    wchar_t own[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, own, MAX_PATH);
    fs::copy_file(fs::path(own).parent_path() / kLibrary, fs::path(folder_) / kLibrary);
}

Doubles::~Doubles() {
    ::CloseHandle(written_);
}

void Doubles::fail(const std::vector<std::pair<std::string, unsigned long>>& steps) const {
    std::ostringstream text;
    for (const auto& [step, status] : steps) {
        text << step << ' ' << std::hex << status << '\n';
    }
    write_text(folder_ + "fail.txt", text.str());
}

std::vector<std::string> Doubles::until(const std::string& last, const std::vector<std::string>& wanted) {
    std::vector<std::string> found;
    const auto is_wanted = [&wanted](const std::string& line) {
        return wanted.empty() ? !line.starts_with("trace ")
                              : std::any_of(wanted.begin(), wanted.end(), [&line](const std::string& beginning) {
                                    return line.starts_with(beginning);
                                });
    };
    do {
        const std::string journal = read_text(folder_ + "journal.txt");
        for (std::size_t end; (end = journal.find('\n', seen_)) != std::string::npos; seen_ = end + 1) {
            const std::string line = journal.substr(seen_, end - seen_);
            if (is_wanted(line)) {
                found.push_back(line);
            }
            if (line.starts_with(last)) {
                seen_ = end + 1;
                return found;
            }
        }
    } while (::WaitForSingleObject(written_, kPatience) == WAIT_OBJECT_0);
    ADD_FAILURE() << "there is no " << last;
    return found;
}

WatchedProcess::WatchedProcess(const std::string& path, const std::string& arguments) {
    const fs::path executable(path);
    std::wstring command = L"\"" + executable.wstring() + L"\" " + fs::path(arguments).wstring();
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = ::CreateFileW((executable.parent_path() / "output.txt").c_str(), GENERIC_WRITE,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, CREATE_ALWAYS, 0, nullptr);
    const BOOL started = ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                                          nullptr, &startup, &process_);
    ::CloseHandle(startup.hStdOutput);
    if (!started) {
        throw std::runtime_error("cannot start " + path);
    }
    inject(process_.hProcess, (executable.parent_path() / kLibrary).wstring());
    ::ResumeThread(process_.hThread);
}

WatchedProcess::~WatchedProcess() {
    ::TerminateProcess(process_.hProcess, 1);
    ::WaitForSingleObject(process_.hProcess, kPatience);
    ::CloseHandle(process_.hThread);
    ::CloseHandle(process_.hProcess);
}

DWORD WatchedProcess::wait() const {
    DWORD code = STILL_ACTIVE;
    ::WaitForSingleObject(process_.hProcess, kPatience);
    ::GetExitCodeProcess(process_.hProcess, &code);
    return code;
}
