#include "service/service_install.h"

#include <array>
#include <cstdio>

#include "base/text.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/module.h"
#include "platform/service_manager.h"
#include "service/service_base.h"

namespace zorvalis {
namespace {

// Rights that are asked of the service manager and of a service, in Windows' numbers.
constexpr std::uint32_t kConnect = 1;
constexpr std::uint32_t kConnectAndCreate = 3;
constexpr std::uint32_t kQueryStatus = 4;
constexpr std::uint32_t kStopQueryDelete = 0x10024;
constexpr std::uint32_t kNormalErrorControl = 1;

void PrintFailure(const char* call) {
    std::printf("%s failed w/err 0x%08lx\n", call, static_cast<unsigned long>(platform::last_error()));
}

void PrintNow(const char* text) {
    std::printf("%s", text);
    std::fflush(stdout);
}

void StopAndWait(platform::ServiceManager& manager, const char* name) {
    platform::ServiceStatus status{};
    if (!manager.control_service(SERVICE_CONTROL_STOP, status)) {
        return;
    }
    std::printf("Stopping %s.", name);
    std::fflush(stdout);
    platform::sleep_milliseconds(1000);
    while (manager.query_service(status) && status.state == kStopPending) {  // Kept: for as long as it takes
        PrintNow(".");
        platform::sleep_milliseconds(1000);
    }
    std::printf(status.state == kStopped ? "\n%s is stopped.\n" : "\n%s failed to stop.\n", name);
}

}  // namespace

void InstallService(const wchar_t* name, const wchar_t* displayName, std::uint32_t startType,
                    const wchar_t* dependencies, const wchar_t* account, const wchar_t* password) {
    std::array<wchar_t, 260> path{};
    if (platform::module_file_name(path.data(), static_cast<int>(path.size())) == 0) {
        PrintFailure("GetModuleFileName");
        return;
    }
    platform::ServiceManager manager;
    if (!manager.open(kConnectAndCreate)) {
        PrintFailure("OpenSCManager");
        return;
    }
    // Kept: the path is not quoted, which is unsafe in a folder with a blank (docs/known-weaknesses.md).
    const platform::ServiceRegistration registration = {
        name, displayName, kOwnProcess, startType, kNormalErrorControl, path.data(), dependencies, account, password};
    if (!manager.create_service(registration, kQueryStatus)) {
        PrintFailure("CreateService");
        return;
    }
    std::printf("%s is installed.\n", NarrowBytes(name).c_str());
}

void UninstallService(const wchar_t* name) {
    const std::string narrow = NarrowBytes(name);
    platform::ServiceManager manager;
    if (!manager.open(kConnect)) {
        PrintFailure("OpenSCManager");
        return;
    }
    if (!manager.open_service(name, kStopQueryDelete)) {
        PrintFailure("OpenService");
        return;
    }
    StopAndWait(manager, narrow.c_str());
    if (!manager.delete_service()) {
        PrintFailure("DeleteService");
        return;
    }
    std::printf("%s is removed.\n", narrow.c_str());
}

}  // namespace zorvalis
