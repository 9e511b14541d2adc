// The service database, as an administrator's command uses it: one call for each call of Windows. On the stand-in
// machine it is the folder services/. An object holds at most one open database and one open service, closes both, and
// belongs to one thread. A call that returns false leaves a Windows error number in `last_error`.
#pragma once

#include <cstdint>
#include <string>

#include "platform/service.h"

namespace platform {

// Causes that callers tell apart, in the numbers of Windows, and two exit codes of a service that Windows sets.
constexpr std::uint32_t kAccessDenied = 5;
constexpr std::uint32_t kInvalidServiceControl = 1052;
constexpr std::uint32_t kServiceRequestTimeout = 1053;
constexpr std::uint32_t kServiceDoesNotExist = 1060;
constexpr std::uint32_t kServiceCannotAcceptControl = 1061;
constexpr std::uint32_t kServiceNotActive = 1062;
constexpr std::uint32_t kProcessAborted = 1067;
constexpr std::uint32_t kServiceNeverStarted = 1077;

// Types, access masks and controls are the numbers of Windows.
struct ServiceRegistration {
    const wchar_t* name;
    const wchar_t* display_name;
    std::uint32_t type;
    std::uint32_t start_type;
    std::uint32_t error_control;
    const wchar_t* path;
    const wchar_t* dependencies;  // names, each ended by a null, and one more null at the end; "" for no dependency
    const wchar_t* account;       // null for LocalSystem
    const wchar_t* password;      // null when the account needs none
};

class ServiceManager {
public:
    ServiceManager();
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    bool open(std::uint32_t access);
    bool create_service(const ServiceRegistration& registration, std::uint32_t access);
    bool open_service(const wchar_t* name, std::uint32_t access);

    // These three act on the open service.
    bool control_service(std::uint32_t control, ServiceStatus& status);
    bool query_service(ServiceStatus& status);
    bool delete_service();

private:
    struct State;
    State* state_;
};

}  // namespace platform
