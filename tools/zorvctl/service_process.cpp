#include "service_process.h"

#include "output.h"

#if defined(_WIN32)
#include <windows.h>

#include "common/code_page.h"
#include "platform/windows/handles.h"
#else
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/linux/line_client.h"
#include "platform/linux/service_control.h"
#include "platform/machine.h"
#endif

namespace zorvalis {

#if defined(_WIN32)

StartedService::StartedService(const std::string& name, const std::string&, const std::string&) {
    using Handle = platform::Owned<::CloseServiceHandle, SC_HANDLE>;
    const Handle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const Handle service(manager == nullptr ? nullptr
                                            : OpenServiceW(manager.get(), Utf82Unicode(name).c_str(), SERVICE_START));
    const bool started = service != nullptr && StartServiceW(service.get(), 0, nullptr) != FALSE;
    const DWORD error = GetLastError();  // not beside the call: arguments have no order
    Require(started, name + " cannot be started: error " + std::to_string(error));
}

bool StartedService::HasEnded(const platform::ServiceStatus& status) {
    return status.state == SERVICE_STOPPED;
}

void StartedService::WaitForEnd() {}

std::string StartedService::Death() const {
    return "";
}

RunningService::RunningService() = default;

RunningService::~RunningService() = default;

void RunningService::WaitForEnd() const {}

bool SendToMachine(const std::string&, const std::string&, std::string*) {
    return false;
}

#else

namespace {

volatile sig_atomic_t serviceProcess = 0;

void StopService(int) {
    kill(serviceProcess, SIGTERM);
}

// The settings of a process to be made.
class SpawnSettings {
public:
    SpawnSettings(const sigset_t& mask, const std::string& log) {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&files);
        sigset_t usual;
        sigemptyset(&usual);
        for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&usual, signal);
        }
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setsigmask(&attributes, &mask);
        const int detached = log.empty() ? 0 : POSIX_SPAWN_SETSID;
        posix_spawnattr_setflags(&attributes,
                                 static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | detached));
        if (!log.empty()) {
            posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
            posix_spawn_file_actions_addopen(&files, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
            posix_spawn_file_actions_adddup2(&files, 1, 2);
        }
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t files{};
};

}  // namespace

StartedService::StartedService(const std::string& name, const std::string& path, const std::string& log) {
    setenv(platform::kServiceVariable, name.c_str(), 1);
    setenv("ZORV_MACHINE", platform::machine_folder().c_str(), 1);
    sigset_t stops, before;
    sigemptyset(&stops);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&stops, signal);
    }
    sigprocmask(SIG_BLOCK, &stops, &before);  // until there is a process to pass them on to
    const SpawnSettings settings(before, log);
    char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
    const int error = posix_spawn(&process_, path.c_str(), &settings.files, &settings.attributes, arguments, environ);
    if (error == 0 && log.empty()) {
        serviceProcess = process_;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            std::signal(signal, StopService);
        }
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    Require(error == 0, path + " cannot be started: " + std::strerror(error));
}

bool StartedService::HasEnded(const platform::ServiceStatus&) {
    return waitpid(process_, &result_, WNOHANG) == process_;
}

void StartedService::WaitForEnd() {
    while (waitpid(process_, &result_, 0) == -1 && errno == EINTR) {
    }
}

std::string StartedService::Death() const {
    return WIFSIGNALED(result_)        ? std::string("it was ended by a signal: ") + strsignal(WTERMSIG(result_))
           : WEXITSTATUS(result_) != 0 ? "its process ended with " + std::to_string(WEXITSTATUS(result_))
                                       : "";
}

RunningService::RunningService() {
    platform::LineClient control;
    if (control.open(platform::kControlSocket, 1) && control.process() > 0) {
        process_ = static_cast<int>(syscall(SYS_pidfd_open, control.process(), 0));
    }
}

RunningService::~RunningService() {
    if (process_ >= 0) {
        close(process_);
    }
}

void RunningService::WaitForEnd() const {
    pollfd process = {process_, POLLIN, 0};
    if (process_ >= 0) {
        poll(&process, 1, 10000);
    }
}

bool SendToMachine(const std::string& socket, const std::string& line, std::string* answer) {
    platform::LineClient client;
    if (!client.open(socket, 0) || !client.send(line)) {
        return false;
    }
    if (answer != nullptr && !client.receive(*answer)) {
        answer->clear();
    }
    return true;
}

#endif

}  // namespace zorvalis
