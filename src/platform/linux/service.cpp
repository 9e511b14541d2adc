// The service without a service manager: `zorvctl service` starts the process, run/control (a socket of lines) brings
// the controls, status.jsonl gets the reports, power.json has the power settings. The main thread dispatches, the
// server's thread only queues.
#include "platform/service.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/linux/line_server.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/power_settings.h"
#include "platform/linux/service_control.h"
#include "platform/linux/wide.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"
#include "platform/stand_in/line_client.h"

namespace platform {
namespace {

constexpr char kLockFile[] = "run/control.lock";
constexpr ServiceStatusHandle kStatusHandle = 1;
constexpr std::intptr_t kFirstRegistration = 0x1000;  // never a status handle
constexpr int kPredecessorSeconds = 10;               // for a service that has stopped and whose process still ends
constexpr std::uint32_t kMainMilliseconds = 5000;     // for a ServiceMain that still runs after the stop; scaled

LineLimits limits() {
    LineLimits limits;
    limits.too_long = R"({"error":"a line has at most 65536 bytes"})";
    return limits;
}

struct WaitingControl {
    ServiceControl what;
    LineServer::Connection sender = 0;  // 0 for a signal or a power setting: no one gets an answer
    std::size_t size = 0;               // of the line that brought it, in bytes
};

// One run of the service. The mutex of Shared guards all members but the server.
struct Run {
    LineServer server{limits()};
    ServiceHandler handler = nullptr;
    void* context = nullptr;
    ServiceStatus status = {kOwnProcess, kServiceStartPending, 0, 0, 0, 0, 0};
    std::deque<WaitingControl> waiting;
    std::map<std::intptr_t, Guid> settings;
    std::intptr_t last_registration = kFirstRegistration;
    std::shared_ptr<bool> main_ended = std::make_shared<bool>(false);
};

// Never destroyed: threads may still report while the process ends.
struct Shared {
    std::mutex mutex;
    std::condition_variable main_ended;
    std::unique_ptr<Run> run;
    Descriptor wake{::eventfd(0, EFD_CLOEXEC)};  // wakes the dispatcher
};

Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

std::atomic<bool> signalled{false};
std::atomic<int> signal_wake{-1};

void wake_dispatcher() {
    ::eventfd_write(shared().wake.get(), 1);
}

// While it lives, SIGTERM and SIGINT are the stop control.
class StopSignals {
public:
    StopSignals() {
        signalled = false;
        signal_wake = shared().wake.get();
        struct sigaction action {};
        action.sa_handler = [](int) {
            const int error = errno;
            signalled = true;
            ::eventfd_write(signal_wake, 1);
            errno = error;
        };
        action.sa_flags = SA_RESTART;
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            ::sigaction(kSignals[i], &action, &before_[i]);
        }
    }
    ~StopSignals() {
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            ::sigaction(kSignals[i], &before_[i], nullptr);
        }
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    static constexpr std::array<int, 2> kSignals = {SIGTERM, SIGINT};
    std::array<struct sigaction, kSignals.size()> before_{};
};

std::string status_line(const ServiceStatus& status) {
    return zorvalis::DumpJson({{"state", status.state},
                               {"accepted", status.accepted},
                               {"exitCode", status.exit_code},
                               {"checkpoint", status.checkpoint},
                               {"waitHint", status.wait_hint}});
}

std::string result_line(std::uint32_t result) {
    return zorvalis::DumpJson({{"result", result}});
}

std::string error_line(const std::string& problem) {
    return zorvalis::DumpJson({{"error", problem}});
}

// Whether the service that holds the machine has stopped and only its process still ends.
bool predecessor_leaves() {
    LineClient predecessor;
    if (!predecessor.open(kControlSocket, 1)) {
        return true;  // its socket is not open yet, or closed already
    }
    std::string answer;
    return predecessor.send("{\"status\":true}") && predecessor.receive(answer) &&
           answer.find("\"state\":1,") != std::string::npos;
}

// Makes this process the machine's only service, as long as `lock` is open. 0, or a Windows error number.
std::uint32_t take_machine(Descriptor& lock) {
    make_folders(machine_path("run"));
    const std::string path = machine_path(kLockFile);
    lock = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!lock) {
        return windows_error(errno);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kPredecessorSeconds);
    while (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (!predecessor_leaves() || std::chrono::steady_clock::now() > end) {
            return kServiceAlreadyRunning;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return 0;
}

// On the server's thread: queues a control for the dispatcher, and answers by itself only what needs no handler.
std::optional<std::string> take_line(LineServer::Connection sender, const std::string& line) {
    std::string problem;
    auto control = parse_service_control(line, problem);
    if (!control) {
        return error_line(problem);
    }
    const std::lock_guard guard(shared().mutex);
    Run& run = *shared().run;
    if (control->asks_for_status) {
        return status_line(run.status);
    }
    if (run.status.state == kServiceStopped) {
        return result_line(kServiceNotActive);  // the dispatcher may have ended
    }
    run.waiting.push_back({*std::move(control), sender, line.size()});
    wake_dispatcher();
    return std::nullopt;
}

// Why the control is refused, as a line for its sender; empty when it is to be delivered.
std::string refusal_line(const Run& run, const ServiceControl& control) {
    const std::uint32_t error =
        run.handler != nullptr ? refusal(control.control, run.status) : kServiceCannotAcceptControl;
    if (error != 0) {
        return result_line(error);
    }
    const auto registered = [&](const auto& entry) { return entry.second == control.change->setting; };
    if (control.change && std::none_of(run.settings.begin(), run.settings.end(), registered)) {
        return error_line("the service is not registered for this power setting");
    }
    return "";
}

// Called with the mutex held, which is released while the handler runs.
void deliver(std::unique_lock<std::mutex>& guard, Run& run, WaitingControl waiting) {
    std::string answer = refusal_line(run, waiting.what);
    if (answer.empty()) {
        const auto [handler, context] = std::pair(run.handler, run.context);
        ServiceControl& what = waiting.what;
        guard.unlock();
        answer = result_line(handler(what.control, what.event_type, what.change ? &*what.change : nullptr, context));
        guard.lock();
    }
    if (waiting.sender != 0) {
        run.server.answer(waiting.sender, std::move(answer), waiting.size);
    }
}

// Whether a signal asks for a stop. A service that is still starting gets it when it has started.
bool stop_is_due(const Run& run) {
    return run.handler != nullptr && run.status.state != kServiceStartPending && signalled.exchange(false);
}

// Delivers controls until the service has reported that it is stopped, or its ServiceMain has ended without ever
// registering a handler, so that it never will.
void dispatch(Run& run) {
    std::unique_lock guard(shared().mutex);
    while (run.status.state != kServiceStopped && !(*run.main_ended && run.handler == nullptr)) {
        if (stop_is_due(run)) {
            deliver(guard, run, {{false, kControlStop, 0, std::nullopt}, 0, 0});
        } else if (!run.waiting.empty()) {
            WaitingControl next = std::move(run.waiting.front());
            run.waiting.pop_front();
            deliver(guard, run, std::move(next));
        } else {
            guard.unlock();
            eventfd_t count = 0;
            pollfd wake = {shared().wake.get(), POLLIN, 0};
            ::poll(&wake, 1, -1);  // where, unlike in a read, the thread sanitizer does not hold signals back
            if (wake.revents != 0) {
                ::eventfd_read(wake.fd, &count);
            }
            guard.lock();
        }
    }
    for (const WaitingControl& late : run.waiting) {
        if (late.sender != 0) {
            run.server.answer(late.sender, result_line(kServiceNotActive), late.size);
        }
    }
}

std::thread start_main(std::wstring name, ServiceMain main, const std::shared_ptr<bool>& ended) {
    return std::thread([name = std::move(name), main, ended]() mutable {
        wchar_t* arguments[] = {name.data(), nullptr};
        main(1, arguments);
        const std::lock_guard guard(shared().mutex);
        *ended = true;
        shared().main_ended.notify_all();
        wake_dispatcher();
    });
}

// Waits for ServiceMain. One that hangs uses objects that the caller will destroy, so the process ends here.
void end_main(std::thread& thread, const std::shared_ptr<bool>& ended) {
    const auto limit = std::chrono::microseconds(scaled_wait(kMainMilliseconds));
    std::unique_lock guard(shared().mutex);
    const bool over = shared().main_ended.wait_for(guard, limit, [&] { return *ended; });
    guard.unlock();
    if (!over) {
        ::_exit(0);
    }
    thread.join();
}

bool fail(std::uint32_t error) {
    set_last_error(error);
    return error == 0;
}

bool started_as_service(const wchar_t* name) {
    const char* const started = std::getenv(kServiceVariable);
    const bool result = started != nullptr && started == to_utf8(name);
    ::unsetenv(kServiceVariable);  // processes that this one starts must not inherit it
    return result;
}

// The run that the handle stands for; null when there is none, or its handler is not registered yet.
Run* find_run(ServiceStatusHandle handle) {
    Run* const run = shared().run.get();
    return handle == kStatusHandle && run != nullptr && run->handler != nullptr ? run : nullptr;
}

void log_status(const char* file, const ServiceStatus& status) {
    append_json(file, {{"time", static_cast<double>(now_microseconds()) / 1e6},
                       {"type", status.type},
                       {"state", status.state},
                       {"accepted", status.accepted},
                       {"exitCode", status.exit_code},
                       {"specificExitCode", status.specific_exit_code},
                       {"checkpoint", status.checkpoint},
                       {"waitHint", status.wait_hint}});
}

}  // namespace

bool run_service(const wchar_t* name, ServiceMain main) {
    if (!started_as_service(name)) {
        return fail(kNotStartedAsService);
    }
    Descriptor lock;
    if (const std::uint32_t error = take_machine(lock); error != 0) {
        return fail(error);
    }
    auto run = std::make_unique<Run>();
    const auto main_ended = run->main_ended;
    Run& running = *run;
    if (const std::uint32_t error = running.server.open(kControlSocket); error != 0) {
        return fail(error);
    }
    const StopSignals signals;
    {
        const std::lock_guard guard(shared().mutex);
        shared().run = std::move(run);
    }
    const auto forget = [] {
        const std::lock_guard guard(shared().mutex);
        return std::exchange(shared().run, nullptr);
    };
    std::thread thread;
    std::uint32_t error = running.server.start(take_line);
    if (error == 0) {
        try {
            thread = start_main(name, main, main_ended);
        } catch (const std::system_error&) {
            error = kNotEnoughMemory;
        }
    }
    if (error == 0) {
        dispatch(running);
    }
    running.server.stop();
    if (thread.joinable()) {
        end_main(thread, main_ended);
    }
    const auto last = forget();
    if (error == 0 && last->handler == nullptr) {
        error = kServiceRequestTimeout;
    }
    return fail(error);
}

ServiceStatusHandle register_service_handler(const wchar_t*, ServiceHandler handler, void* context) {
    const std::lock_guard guard(shared().mutex);
    Run* const run = shared().run.get();
    if (run == nullptr || handler == nullptr) {
        set_last_error(run == nullptr ? kServiceNotInProcess : kInvalidParameter);
        return 0;
    }
    run->handler = handler;
    run->context = context;
    return kStatusHandle;
}

bool set_service_status(ServiceStatusHandle handle, const ServiceStatus& status) {
    const std::lock_guard guard(shared().mutex);  // held while logging, so that the lines are in order
    Run* const run = find_run(handle);
    if (run == nullptr || run->status.state == kServiceStopped) {
        log_status(kRefusedStatusLog, status);
        return fail(kInvalidHandle);  // Windows closes the handle when a service reports that it is stopped
    }
    if (status.state < kServiceStopped || status.state > kServiceLastState) {
        return fail(kInvalidData);
    }
    run->status = status;
    log_status(kStatusLog, status);
    wake_dispatcher();
    return true;
}

std::intptr_t register_power_setting(ServiceStatusHandle handle, const Guid& setting) {
    const std::lock_guard guard(shared().mutex);
    Run* const run = find_run(handle);
    if (run == nullptr) {
        fail(kInvalidHandle);
        return 0;
    }
    run->settings[++run->last_registration] = setting;
    if (const auto state = present_power_state(setting)) {
        const PowerSettingChange change = {setting, sizeof *state, *state};
        run->waiting.push_back({{false, kControlPowerEvent, kPowerSettingChange, change}, 0});
        wake_dispatcher();
    }
    return run->last_registration;
}

bool unregister_power_setting(std::intptr_t registration) {
    const std::lock_guard guard(shared().mutex);
    const bool known = shared().run != nullptr && shared().run->settings.erase(registration) != 0;
    return known || fail(kInvalidHandle);
}

}  // namespace platform
