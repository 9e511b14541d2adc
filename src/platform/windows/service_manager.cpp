// By the service control manager's own calls.
#include "platform/service_manager.h"

#include "platform/windows/handles.h"

namespace platform {
namespace {

using OwnedService = Owned<::CloseServiceHandle, SC_HANDLE>;

// Fills `to` only after a success.
bool deliver(bool done, const SERVICE_STATUS& from, ServiceStatus& to) {
    if (done) {
        to = {from.dwServiceType,
              from.dwCurrentState,
              from.dwControlsAccepted,
              from.dwWin32ExitCode,
              from.dwServiceSpecificExitCode,
              from.dwCheckPoint,
              from.dwWaitHint};
    }
    return done;
}

}  // namespace

// Members are closed from the last to the first.
struct ServiceManager::State {
    OwnedService manager;
    OwnedService service;
};

ServiceManager::ServiceManager() : state_(new State) {}

ServiceManager::~ServiceManager() {
    delete state_;
}

bool ServiceManager::open(std::uint32_t access) {
    state_->manager.reset(::OpenSCManagerW(nullptr, nullptr, access));
    return state_->manager != nullptr;
}

bool ServiceManager::create_service(const ServiceRegistration& registration, std::uint32_t access) {
    state_->service.reset(::CreateServiceW(state_->manager.get(), registration.name, registration.display_name, access,
                                           registration.type, registration.start_type, registration.error_control,
                                           registration.path, nullptr, nullptr, registration.dependencies,
                                           registration.account, registration.password));
    return state_->service != nullptr;
}

bool ServiceManager::open_service(const wchar_t* name, std::uint32_t access) {
    state_->service.reset(::OpenServiceW(state_->manager.get(), name, access));
    return state_->service != nullptr;
}

bool ServiceManager::control_service(std::uint32_t control, ServiceStatus& status) {
    SERVICE_STATUS reported = {};
    return deliver(::ControlService(state_->service.get(), control, &reported) != FALSE, reported, status);
}

bool ServiceManager::query_service(ServiceStatus& status) {
    SERVICE_STATUS reported = {};
    return deliver(::QueryServiceStatus(state_->service.get(), &reported) != FALSE, reported, status);
}

bool ServiceManager::delete_service() {
    return ::DeleteService(state_->service.get()) != FALSE;
}

}  // namespace platform
