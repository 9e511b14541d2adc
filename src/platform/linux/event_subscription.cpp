#include "platform/event_subscription.h"

#include <cwchar>
#include <string_view>

#include "platform/linux/event_source.h"
#include "platform/linux/step_failure.h"

namespace platform {
namespace {

using Status = EventSubscription::Status;

constexpr Status status_of(std::uint32_t number) {
    return static_cast<Status>(number);
}

constexpr Status kNoObject = status_of(0x80004003);          // E_POINTER
constexpr Status kNotFound = status_of(0x80041002);          // WBEM_E_NOT_FOUND
constexpr Status kInvalidParameter = status_of(0x80041008);  // WBEM_E_INVALID_PARAMETER
constexpr Status kInvalidNamespace = status_of(0x8004100E);  // WBEM_E_INVALID_NAMESPACE
constexpr Status kInvalidQuery = status_of(0x80041017);      // WBEM_E_INVALID_QUERY
constexpr Status kInvalidQueryType = status_of(0x80041018);  // WBEM_E_INVALID_QUERY_TYPE

bool equal(const wchar_t* a, const wchar_t* b) {
    return ::wcscasecmp(a, b) == 0;
}

}  // namespace

struct EventSubscription::State {
    bool locator = false;
    bool services = false;
    bool started = false;
    std::shared_ptr<EventReceiver> stub;
};

EventSubscription::EventSubscription() : state_(new State) {}

EventSubscription::~EventSubscription() {
    if (state_->started) {
        remove_event_receiver(state_->stub, false);
    }
    delete state_;
}

Status EventSubscription::enter() {
    return step_status("enter");
}

Status EventSubscription::create_locator() {
    const Status status = step_status("create_locator");
    state_->locator = status >= 0;
    return status;
}

Status EventSubscription::connect(const wchar_t* name_space) {
    const Status status = state_->locator ? step_status("connect") : kNoObject;
    if (status < 0 || !equal(name_space, L"ROOT\\WMI")) {
        return status < 0 ? status : kInvalidNamespace;
    }
    state_->services = true;
    return status;
}

Status EventSubscription::set_blanket() {
    return state_->services ? step_status("set_blanket") : kNoObject;
}

void EventSubscription::create_stub(std::shared_ptr<EventReceiver> receiver) {
    if (step_status("create_stub") >= 0) {
        state_->stub = std::move(receiver);
    }
}

// There is one class of events, whatever the query calls it.
Status EventSubscription::start(const wchar_t* language, const wchar_t* query) {
    const Status status = state_->services ? step_status("start") : kNoObject;
    if (status < 0) {
        return status;
    }
    if (!equal(language, L"WQL") || ::wcsncasecmp(query, L"SELECT ", 7) != 0) {
        return equal(language, L"WQL") ? kInvalidQuery : kInvalidQueryType;
    }
    if (state_->stub == nullptr || state_->started) {
        return kInvalidParameter;
    }
    const std::uint32_t error = add_event_receiver(state_->stub);
    state_->started = error == 0;
    return error == 0 ? status : status_of(0x80070000U | error);
}

Status EventSubscription::cancel() {
    const Status status = state_->services ? step_status("cancel") : kNoObject;
    if (status < 0 || !state_->started) {
        return status < 0 ? status : kNotFound;
    }
    state_->started = false;
    remove_event_receiver(state_->stub, true);
    return status;
}

}  // namespace platform
