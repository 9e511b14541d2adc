// The service database is the folder services/, a file for each service. Statuses and controls go to the running
// service's socket run/control.
#include "platform/service_manager.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>

#include "base/json.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/registry_key.h"
#include "platform/linux/service_control.h"
#include "platform/linux/wide.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"
#include "platform/stand_in/line_client.h"

namespace platform {
namespace {

// Access rights: the first is one of the manager, the others are a service's.
constexpr std::uint32_t kMayCreate = 2;

constexpr std::uint32_t kMayQuery = 4;
constexpr std::uint32_t kMayStop = 0x20;
constexpr std::uint32_t kMayPause = 0x40;
constexpr std::uint32_t kMayInterrogate = 0x80;
constexpr std::uint32_t kMaySendOwn = 0x100;
constexpr std::uint32_t kMayDelete = 0x10000;

constexpr std::size_t kLongestName = 256;
constexpr int kAnswerSeconds = 30;  // as the service manager of Windows waits

using zorvalis::Json;

std::string service_file(const std::wstring& name) {
    return machine_path("services/" + to_utf8(name) + ".json");
}

bool is_service_name(const std::wstring& name) {
    return !name.empty() && name.size() <= kLongestName && name.front() != L'.' &&
           name.find_first_of(L"/\\") == std::wstring::npos;
}

std::string text_or(const wchar_t* text, const char* otherwise) {
    return text != nullptr ? to_utf8(text) : otherwise;
}

// `list` is made as ServiceRegistration::dependencies.
Json names_in(const wchar_t* list) {
    Json names = Json::array();
    for (; list != nullptr && *list != L'\0'; list += std::wstring_view(list).size() + 1) {
        names.push_back(to_utf8(list));
    }
    return names;
}

// 0, or a Windows error number.
std::uint32_t write_new_service(const std::wstring& name, const std::string& text) {
    const std::string path = machine_path("services");
    make_folders(path);
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || !lock_key(folder.get())) {
        return windows_error(errno);
    }
    if (file_exists(service_file(name))) {
        return kServiceExists;
    }
    const int error = write_entry(folder.get(), to_utf8(name) + ".json", text);
    return error == 0 ? 0 : windows_error(error);
}

// The access right that sending the control takes.
std::uint32_t right_for(std::uint32_t control) {
    switch (control) {
        case kControlStop:
            return kMayStop;
        case kControlInterrogate:
            return kMayInterrogate;
        default:
            return control < kControlPowerEvent ? kMayPause : kMaySendOwn;
    }
}

std::optional<std::uint32_t> member(const Json& json, const char* name) {
    const auto found = json.is_object() ? json.find(name) : json.end();
    return found != json.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint32_t>())
                                                              : std::nullopt;
}

Json parse_answer(const std::string& line) {
    try {
        return zorvalis::ParseJson(line);
    } catch (const std::invalid_argument&) {
        return nullptr;
    }
}

// The last status that any service of this machine has reported, from the end of status.jsonl; null when there is none.
Json last_report() {
    const Descriptor log(::open(machine_path(kStatusLog).c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> tail;
    const off_t size = log ? ::lseek(log.get(), 0, SEEK_END) : 0;
    const off_t start = std::max<off_t>(size - static_cast<off_t>(tail.size()), 0);
    const ssize_t count = size > 0 ? ::pread(log.get(), tail.data(), tail.size(), start) : 0;
    std::string text(tail.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    text.erase(text.find_last_not_of('\n') + 1);
    return parse_answer(text.substr(text.find_last_of('\n') + 1));
}

// The status of a service that does not run: its last exit code, or that it has never run, or that its process died.
ServiceStatus stopped_status() {
    const Json report = last_report();
    const auto state = member(report, "state");
    const std::uint32_t exitCode = !state                     ? kServiceNeverStarted
                                   : state == kServiceStopped ? member(report, "exitCode").value_or(0)
                                                              : kProcessAborted;
    return {kOwnProcess, kServiceStopped, 0, exitCode, 0, 0, 0};
}

ServiceStatus ask_status(LineClient& service) {
    std::string answer;
    const bool answered = service.send("{\"status\":true}") && service.receive(answer);
    const Json json = answered ? parse_answer(answer) : Json();
    const auto state = member(json, "state");
    if (!state || state == kServiceStopped) {
        return stopped_status();
    }
    const auto number = [&](const char* name) { return member(json, name).value_or(0); };
    return {kOwnProcess, *state, number("accepted"), number("exitCode"), 0, number("checkpoint"), number("waitHint")};
}

// 0, the number that the service's handler returned, or why the control did not reach it.
std::uint32_t send_control(LineClient& service, std::uint32_t control) {
    std::string answer;
    if (!service.send(zorvalis::DumpJson({{"control", control}})) || !service.receive(answer)) {
        return errno == EAGAIN ? kServiceRequestTimeout : kProcessAborted;
    }
    return member(parse_answer(answer), "result").value_or(kGenFailure);
}

bool finish(std::uint32_t error) {
    set_last_error(error);
    return error == 0;
}

}  // namespace

struct ServiceManager::State {
    bool open = false;
    std::uint32_t access = 0;
    std::wstring service;  // empty for none
    std::uint32_t service_access = 0;

    // 0 when the open service was opened with this right, else a Windows error number.
    std::uint32_t may(std::uint32_t right) const {
        return service.empty() ? kInvalidHandle : (service_access & right) == 0 ? kAccessDenied : 0;
    }
};

ServiceManager::ServiceManager() : state_(new State) {}

ServiceManager::~ServiceManager() {
    delete state_;
}

bool ServiceManager::open(std::uint32_t access) {
    state_->open = true;
    state_->access = access;
    return true;
}

bool ServiceManager::create_service(const ServiceRegistration& registration, std::uint32_t access) {
    if (!state_->open || (state_->access & kMayCreate) == 0) {
        return finish(state_->open ? kAccessDenied : kInvalidHandle);
    }
    if (!is_service_name(registration.name)) {
        return finish(kInvalidName);
    }
    const Json json = {{"name", to_utf8(registration.name)},
                       {"displayName", text_or(registration.display_name, "")},
                       {"path", text_or(registration.path, "")},
                       {"type", registration.type},
                       {"startType", registration.start_type},
                       {"errorControl", registration.error_control},
                       {"dependencies", names_in(registration.dependencies)},
                       {"account", text_or(registration.account, "LocalSystem")}};
    const std::uint32_t error = write_new_service(registration.name, json.dump(4) + "\n");
    if (error == 0) {
        state_->service = registration.name;
        state_->service_access = access;
    }
    return finish(error);
}

bool ServiceManager::open_service(const wchar_t* name, std::uint32_t access) {
    if (!state_->open) {
        return finish(kInvalidHandle);
    }
    if (!is_service_name(name)) {
        return finish(kInvalidName);
    }
    if (!file_exists(service_file(name))) {
        return finish(kServiceDoesNotExist);
    }
    state_->service = name;
    state_->service_access = access;
    return true;
}

bool ServiceManager::control_service(std::uint32_t control, ServiceStatus& status) {
    if (!is_manager_control(control)) {
        return finish(kInvalidParameter);
    }
    if (const std::uint32_t error = state_->may(right_for(control)); error != 0) {
        return finish(error);
    }
    LineClient service;
    if (!service.open(kControlSocket, kAnswerSeconds)) {
        status = stopped_status();
        return finish(kServiceNotActive);
    }
    const std::uint32_t error = send_control(service, control);
    if (error != kServiceRequestTimeout) {
        status = ask_status(service);
    }
    return finish(error);
}

bool ServiceManager::query_service(ServiceStatus& status) {
    if (const std::uint32_t error = state_->may(kMayQuery); error != 0) {
        return finish(error);
    }
    LineClient service;
    status = service.open(kControlSocket, kAnswerSeconds) ? ask_status(service) : stopped_status();
    return true;
}

bool ServiceManager::delete_service() {
    std::uint32_t error = state_->may(kMayDelete);
    if (error == 0 && ::unlink(service_file(state_->service).c_str()) != 0) {
        error = errno == ENOENT ? kServiceMarkedForDelete : windows_error(errno);
    }
    return finish(error);
}

}  // namespace platform
