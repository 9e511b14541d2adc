#include "system_part.h"

#include <windows.h>

#include <filesystem>

#include "part.h"
#include "platform/service.h"
#include "platform/windows/wide.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kName[] = L"zorv-acceptance-system";

std::vector<std::string> words;  // of the part that the service runs

void Main(std::uint32_t, wchar_t**) {
    const auto handle = platform::register_service_handler(
        kName, [](std::uint32_t, std::uint32_t, void*, void*) -> std::uint32_t { return 0; }, nullptr);
    platform::set_service_status(handle, {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0, 0, 0, 0, 0});
    int code = 0;
    RunPart(words, code);
    platform::set_service_status(handle, {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0});
}

// The file, then the part and its arguments.
int RunService(const std::vector<std::string>& arguments) {
    const HANDLE file = ::CreateFileW(platform::to_wide(arguments.at(0)).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                      nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE || ::SetStdHandle(STD_OUTPUT_HANDLE, file) == FALSE) {
        return 2;
    }
    words = {"--part"};
    words.insert(words.end(), arguments.begin() + 1, arguments.end());
    return platform::run_service(kName, Main) ? 0 : 1;
}

const Part kService("system-service", RunService);

DWORD StateOf(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return ::QueryServiceStatus(service, &status) != FALSE ? status.dwCurrentState : SERVICE_STOPPED;
}

}  // namespace

SystemPart::SystemPart(const std::string& file, const std::string& part, const std::vector<std::string>& arguments)
    : file_(file) {
    RemoveSystemService();
    std::vector<std::string> all = {file, part};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    const std::wstring command = platform::to_wide(PartCommand("system-service", all));
    // A service of this name that has just been deleted may still be there for a moment.
    for (int tries = 0; service_ == nullptr && tries < 50; ++tries) {
        service_.reset(::CreateServiceW(manager.get(), kName, kName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                        SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, command.c_str(), nullptr, nullptr,
                                        nullptr, nullptr, nullptr));
        if (const DWORD error = ::GetLastError(); service_ == nullptr && error != ERROR_SERVICE_MARKED_FOR_DELETE &&
                                                  error != ERROR_SERVICE_EXISTS &&
                                                  error != ERROR_DUPLICATE_SERVICE_NAME) {
            break;
        }
        ::Sleep(service_ == nullptr ? 100 : 0);
    }
    if (service_ == nullptr || ::StartServiceW(service_.get(), 0, nullptr) == FALSE) {
        error_ = ::GetLastError();
    }
}

SystemPart::~SystemPart() {
    if (service_ != nullptr) {
        Wait(20);
        ::DeleteService(service_.get());
        service_.reset();
    }
    std::error_code ignored;
    std::filesystem::remove(platform::to_wide(file_), ignored);
}

bool SystemPart::HasPrinted(const std::string& text, int seconds) const {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (output().find(text) == std::string::npos) {
        if (::GetTickCount64() > limit || StateOf(service_.get()) == SERVICE_STOPPED) {
            return output().find(text) != std::string::npos;
        }
        ::Sleep(20);
    }
    return true;
}

bool SystemPart::Wait(int seconds) const {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (StateOf(service_.get()) != SERVICE_STOPPED) {
        if (::GetTickCount64() > limit) {
            return false;
        }
        ::Sleep(20);
    }
    return true;
}

std::string SystemPart::output() const {
    return ReadText(file_);
}

void RemoveSystemService() {
    if (const OwnedService service = OpenTheService(kName, DELETE); service != nullptr) {
        ::DeleteService(service.get());
    }
}

}  // namespace zorvalis::acceptance
