#include "windows/doubles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/machine.h"
#include "windows/double/control_data.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kLibrary[] = L"doubles.dll";
constexpr wchar_t kLaunch[] = L"--launch";
constexpr DWORD kPatience = 30000;

// Task scheduler, locator and unsecured apartment.
constexpr const wchar_t* kClasses[] = {L"{0F87369F-A4E5-4CFC-BD3E-73E6154572DD}",
                                       L"{4590F811-1D3A-11D0-891F-00AA004B2E24}",
                                       L"{49BD2028-1523-11D1-AD79-00C04FD8FDFF}"};

constexpr wchar_t kReplaced[] = L"Replaced";  // holds the true server, "" for none, until it is put back

std::wstring server_key(const std::wstring& id) {
    return L"Software\\Classes\\CLSID\\" + id + L"\\InprocServer32";
}

void set_value(const std::wstring& id, const wchar_t* name, const std::wstring& text) {
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, server_key(id).c_str(), name, REG_SZ, text.c_str(),
                      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

bool get_value(const std::wstring& id, const wchar_t* name, std::wstring& text) {
    wchar_t path[MAX_PATH] = {};
    DWORD size = sizeof path;
    const auto status =
        ::RegGetValueW(HKEY_LOCAL_MACHINE, server_key(id).c_str(), name, RRF_RT_ANY, nullptr, path, &size);
    text = path;
    return status == ERROR_SUCCESS;
}

void replace_server(const std::wstring& id, const std::wstring& path) {
    std::wstring text;
    if (!get_value(id, kReplaced, text)) {  // a run that was cut off has left it there
        get_value(id, nullptr, text);
        set_value(id, kReplaced, text);
    }
    set_value(id, nullptr, path);
    set_value(id, L"ThreadingModel", L"Both");
}

void restore_server(const std::wstring& id) {
    std::wstring text;
    get_value(id, kReplaced, text);
    if (text.empty()) {
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, (L"Software\\Classes\\CLSID\\" + id).c_str());
    } else {
        set_value(id, nullptr, text);
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, server_key(id).c_str(), kReplaced);
    }
}

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
    const fs::path library = fs::path(folder_) / kLibrary;
    fs::copy_file(fs::path(own).parent_path() / kLibrary, library);
    for (const wchar_t* id : kClasses) {
        replace_server(id, library.wstring());
    }
}

Doubles::~Doubles() {
    for (const wchar_t* id : kClasses) {
        restore_server(id);
    }
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

void Doubles::set_tasks(const std::string& tasks) const {
    write_text(folder_ + "tasks.txt", tasks);
}

std::string Doubles::tasks() const {
    return read_text(folder_ + "tasks.txt");
}

void Doubles::set_capabilities(const std::string& capabilities) const {
    write_text(folder_ + "capabilities.txt", capabilities);
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

std::wstring WatchedProcess::launcher(const std::string& path) {
    wchar_t own[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, own, MAX_PATH);
    return L"\"" + std::wstring(own) + L"\" " + kLaunch + L" \"" + fs::path(path).wstring() + L"\"";
}

int WatchedProcess::run_launcher(int argc, wchar_t** argv) {
    if (argc != 3 || std::wcscmp(argv[1], kLaunch) != 0) {
        return -1;
    }
    ::SetEnvironmentVariableW(doubles::kOwnManager, L"1");
    const WatchedProcess service(fs::path(argv[2]).string(), "");
    ::WaitForSingleObject(service.handle(), INFINITE);
    return static_cast<int>(service.wait());
}
