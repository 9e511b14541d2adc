// Plays the service manager: spawns the registered executable, waits for it, and reads what it reported.
#include "service_process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/json.h"
#include "base/text.h"
#include "output.h"
#include "platform/machine.h"
#include "platform/stand_in/descriptor.h"
#include "platform/stand_in/line_client.h"
#include "platform/stand_in/service_control.h"
#include "process_linux.h"

namespace zorvalis {

namespace {

std::string StatusLog() {
    return platform::machine_folder() + "/" + platform::kStatusLog;
}

std::uintmax_t ReportedBytes() {
    std::error_code missing;
    const std::uintmax_t size = std::filesystem::file_size(StatusLog(), missing);
    return missing ? 0 : size;
}

std::string ExecutablePath(const std::string& machine, const std::string& name) {
    const std::string file = machine + "/services/" + name + ".json";
    try {
        return ParseJson(ReadWholeFile(file)).at("path").get<std::string>();
    } catch (const std::logic_error& error) {
        throw Failure{file + " does not say what to start: " + error.what()};
    }
}

volatile sig_atomic_t serviceProcess = 0;

void StopService(int) {
    kill(serviceProcess, SIGTERM);
}

}  // namespace

StartedService::StartedService(const std::string& name, Ground ground) : reportsBefore_(ReportedBytes()) {
    const std::string machine = platform::machine_folder();
    if (ground == Ground::background) {
        std::filesystem::create_directories(machine + "/run");
        output_ = machine + "/run/" + name + ".log";
    }
    const std::string path = ExecutablePath(machine, name);
    setenv(platform::kServiceVariable, name.c_str(), 1);
    setenv("ZORV_MACHINE", machine.c_str(), 1);
    sigset_t stops, before;
    sigemptyset(&stops);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&stops, signal);
    }
    sigprocmask(SIG_BLOCK, &stops, &before);  // until there is a process to pass them on to
    const int error = StartProcess({path}, output_.empty() ? 0 : POSIX_SPAWN_SETSID, before, output_, process_);
    if (error == 0 && ground == Ground::foreground) {
        serviceProcess = process_;
        struct sigaction stop {};
        stop.sa_handler = StopService;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            sigaction(signal, &stop, nullptr);
        }
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    Require(error == 0, path + " cannot be started: " + std::strerror(error));
}

bool StartedService::HasEnded(const platform::ServiceStatus&) {
    return waitpid(process_, &result_, WNOHANG) == process_;
}

// In poll, not in waitpid, where the thread sanitizer holds signals back.
void StartedService::WaitForEnd() {
    const platform::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
    pollfd end = {process.get(), POLLIN, 0};
    while (poll(&end, 1, -1) == -1 && errno == EINTR) {
    }
    waitpid(process_, &result_, 0);
}

std::string StartedService::Death() const {
    return WIFSIGNALED(result_)        ? std::string("it was ended by a signal: ") + strsignal(WTERMSIG(result_))
           : WEXITSTATUS(result_) != 0 ? "its process ended with " + std::to_string(WEXITSTATUS(result_))
                                       : "";
}

bool StartedService::HasReported() const {
    return ReportedBytes() > reportsBefore_;
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

double InStateSince(std::uint32_t state) {
    double since = 0;
    for (const std::string& line : SplitString(ReportedBytes() == 0 ? "" : ReadWholeFile(StatusLog()), '\n')) {
        try {
            const Json report = ParseJson(line);
            const bool same = report.at("state").get<std::uint32_t>() == state;
            since = !same ? 0 : since > 0 ? since : report.at("time").get<double>();
        } catch (const std::logic_error&) {
            // a line that is no report, such as half of one
        }
    }
    return since;
}

bool SendControl(const std::string& control, std::string& answer) {
    platform::LineClient service;
    if (!service.open(platform::kControlSocket, 0) || !service.send(control)) {
        return false;
    }
    if (!service.receive(answer)) {
        answer.clear();
    }
    return true;
}

}  // namespace zorvalis
