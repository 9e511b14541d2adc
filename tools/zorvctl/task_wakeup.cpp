#include "task_wakeup.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>

#include "output.h"
#include "platform/stand_in/task_file.h"

namespace zorvalis {

Wakeup::Wakeup(const std::string& machine) {
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&wanted, signal);
    }
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    std::signal(SIGCHLD, SIG_DFL);  // who ignores it leaves no exit codes
    signals_ = platform::Descriptor(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    timer_ = platform::Descriptor(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
    changes_ = platform::Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const std::string tasks = machine + "/" + platform::kTaskFolder;
    std::filesystem::create_directories(tasks);
    constexpr std::uint32_t kChanges = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
    Require(signals_ && timer_ && changes_ && inotify_add_watch(changes_.get(), tasks.c_str(), kChanges) >= 0 &&
                inotify_add_watch(changes_.get(), machine.c_str(), kChanges) >= 0,  // for its clock.json
            "the system has no more descriptors or watches to give");
}

void Wakeup::SetTimer(std::int64_t microseconds) {
    itimerspec at{};
    if (microseconds != kNoLimit) {
        clock_gettime(CLOCK_REALTIME, &at.it_value);
        const std::int64_t nanoseconds = at.it_value.tv_nsec + microseconds % 1000000 * 1000;
        at.it_value.tv_sec += microseconds / 1000000 + nanoseconds / 1000000000;
        at.it_value.tv_nsec = nanoseconds % 1000000000;
    }
    // A host that slept, or whose clock was set, wakes it.
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &at, nullptr);
}

void Wakeup::Wait(std::int64_t microseconds) {
    SetTimer(microseconds);
    pollfd sources[] = {{signals_.get(), POLLIN, 0}, {changes_.get(), POLLIN, 0}, {timer_.get(), POLLIN, 0}};
    platform::retry([&] { return poll(sources, 3, microseconds == 0 ? 0 : -1); });
    signalfd_siginfo signal;
    while (read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
        endWanted_ |= signal.ssi_signo != SIGCHLD;
    }
    std::uint64_t fired = 0;
    const auto ignored = read(timer_.get(), &fired, sizeof fired);
    static_cast<void>(ignored);
    SkipChanges();
}

void Wakeup::SkipChanges() {
    char buffer[4096];
    while (read(changes_.get(), buffer, sizeof buffer) > 0) {
    }
}

}  // namespace zorvalis
