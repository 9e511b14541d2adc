#include "state_reports.h"

#include <iterator>

#include "kit.h"
#include "product_service.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kAnyState = SERVICE_NOTIFY_STOPPED | SERVICE_NOTIFY_START_PENDING | SERVICE_NOTIFY_STOP_PENDING |
                            SERVICE_NOTIFY_RUNNING | SERVICE_NOTIFY_CONTINUE_PENDING | SERVICE_NOTIFY_PAUSE_PENDING |
                            SERVICE_NOTIFY_PAUSED;
constexpr DWORD kLagging = 1294;  // ERROR_SERVICE_NOTIFY_CLIENT_LAGGING, which mingw does not name
constexpr DWORD kRound = 100, kSilence = 2000, kMost = 30000;  // milliseconds

std::string StateName(DWORD state) {
    constexpr const char* kNames[] = {"none", "STOPPED", "START_PENDING", "STOP_PENDING", "RUNNING"};
    return state < std::size(kNames) ? kNames[state] : std::to_string(state);
}

// One call tells of one change, on this thread while it waits; the first also of the present state, which it then
// tells at once.
class Listener {
public:
    Listener(Findings& findings, const std::wstring& service) : findings_(findings), name_(service) {
        buffer_.dwVersion = SERVICE_NOTIFY_STATUS_CHANGE;
        buffer_.pContext = this;
        buffer_.pfnNotifyCallback = [](void* buffer) {
            static_cast<Listener*>(static_cast<SERVICE_NOTIFYW*>(buffer)->pContext)->called_ = true;
        };
        Ask();
    }
    ~Listener() {
        service_.reset();    // takes the question back
        ::SleepEx(0, TRUE);  // lets an answer that has just come find this object
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // The state that was told; 0 when nothing was within a round.
    DWORD Listen() {
        ::SleepEx(kRound, TRUE);
        if (!called_) {
            return 0;
        }
        const DWORD state = buffer_.ServiceStatus.dwCurrentState;
        Ask();
        return state;
    }

private:
    // A handle whose client has not asked for long is to be opened anew.
    void Ask() {
        called_ = false;
        DWORD error = kLagging;
        for (int round = 0; round < 3 && error == kLagging; ++round) {
            if (round > 0 || service_ == nullptr) {
                service_ = OpenTheService(name_, SERVICE_QUERY_STATUS);
            }
            error = ::NotifyServiceStatusChangeW(service_.get(), kAnyState, &buffer_);
        }
        if (error != ERROR_SUCCESS) {
            findings_.Fail("the service manager tells of changes: " + ErrorText(error));
        }
    }

    Findings& findings_;
    const std::wstring name_;
    OwnedService service_;
    SERVICE_NOTIFYW buffer_ = {};
    bool called_ = false;
};

}  // namespace

std::string StatesAfter(Findings& findings, const std::wstring& service, DWORD last, const std::function<void()>& act) {
    Listener listener(findings, service);
    while (listener.Listen() != 0) {  // the state of before
    }
    act();
    std::string states;
    DWORD state = 0;
    for (DWORD silent = 0; silent < (state == last ? kSilence : kMost); silent += kRound) {
        if (const DWORD told = listener.Listen(); told != 0) {
            state = told;
            states += (states.empty() ? "" : " ") + StateName(told);
            silent = 0;
        }
    }
    return states;
}

}  // namespace zorvalis::acceptance
