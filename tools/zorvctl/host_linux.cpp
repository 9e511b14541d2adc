// The Linux side of host.h, and the tool's main.
#include "host.h"

#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "platform/machine.h"
#include "platform/stand_in/line_client.h"
#include "task_runner.h"

namespace zorvalis {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void Interrupt(int) {
    interrupted = 1;
}

}  // namespace

int TerminalWidth() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isatty(STDOUT_FILENO) == 0 ? 0 : known ? size.ws_col : 80;
}

std::string UserName() {
    const passwd* const user = getpwuid(geteuid());
    return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

void UseMachine(const char* folder) {
    setenv("ZORV_MACHINE", folder, 1);
}

bool HasAllRights() {
    return true;
}

// The service may run as the folder's owner: what is refused to another account tells nothing of it.
std::optional<bool> MayWriteIn(const std::string& folder) {
    struct stat status {};
    if (access(folder.c_str(), W_OK | X_OK) == 0) {
        return true;
    }
    const bool others = stat(folder.c_str(), &status) == 0 && status.st_uid != geteuid() && geteuid() != 0;
    return others ? std::nullopt : std::optional(false);
}

bool EndpointListens() {
    return platform::LineClient().open("run/ZorvHelpRpcEndpoint", 1);
}

bool TasksAreStarted() {
    return TasksAreRun(platform::machine_folder());
}

void CatchInterruption() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, Interrupt);
    }
}

bool Interrupted() {
    return interrupted != 0;
}

}  // namespace zorvalis

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a write to a closed pipe then fails instead of ending the tool
    return zorvalis::RunTool({argv + 1, argv + argc});
}
