// Asks the service manager of Windows to start the service; the rest needs a stand-in machine.
#include "service_process.h"

#include <windows.h>

#include <memory>

#include "common/code_page.h"
#include "output.h"

namespace zorvalis {

StartedService::StartedService(const std::string& name, Ground) {
    using Handle = std::unique_ptr<SC_HANDLE__, decltype(&CloseServiceHandle)>;
    const Handle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT), CloseServiceHandle);
    const Handle service(
        manager == nullptr ? nullptr : OpenServiceW(manager.get(), Utf82Unicode(name).c_str(), SERVICE_START),
        CloseServiceHandle);
    const bool started = service != nullptr && StartServiceW(service.get(), 0, nullptr) != FALSE;
    const DWORD error = GetLastError();  // read at once: making the words below may change it
    Require(started, name + " cannot be started: error " + std::to_string(error));
}

bool StartedService::HasEnded(const platform::ServiceStatus& status) {
    return status.state == SERVICE_STOPPED;
}

bool StartedService::HasReported() const {
    return true;
}

// The service manager hands out no process to wait for, and there is no stand-in machine to ask.
void StartedService::WaitForEnd() {}

std::string StartedService::Death() const {
    return "";
}

RunningService::RunningService() = default;

RunningService::~RunningService() = default;

void RunningService::WaitForEnd() const {}

double InStateSince(std::uint32_t) {
    return 0;
}

bool SendControl(const std::string&, std::string&) {
    return false;
}

}  // namespace zorvalis
