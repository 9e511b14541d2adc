// The Linux side of host.h, and the tool's main.
#include "host.h"

#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

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
    struct stat machine {};
    return geteuid() == 0 || stat(platform::machine_folder().c_str(), &machine) != 0 || machine.st_uid == geteuid();
}

std::string HiddenPart() {
    namespace fs = std::filesystem;
    const fs::path machine = platform::machine_folder();
    const auto hides = [](const fs::path& path) {
        const int rights = access((path / "").c_str(), F_OK) == 0 ? R_OK | X_OK : R_OK;
        return access(path.c_str(), rights) != 0 && errno == EACCES;
    };
    if (HasAllRights()) {
        return "";
    }
    for (const char* part : {"registry", "tasks", "ProgramData", "hardware.json"}) {
        std::error_code error;
        if (hides(machine / part)) {
            return machine / part;
        }
        constexpr auto kPassOver = fs::directory_options::skip_permission_denied;
        for (auto each = fs::recursive_directory_iterator(machine / part, kPassOver, error);
             !error && each != fs::recursive_directory_iterator(); each.increment(error)) {
            if (part[0] != 'P' && hides(each->path())) {
                return each->path();
            }
        }
    }
    return "";
}

// The service may run as the folder's owner: what is refused to another account tells nothing of it.
std::optional<bool> MayWriteIn(const std::string& folder) {
    const bool may = access(folder.c_str(), W_OK | X_OK) == 0;
    return may || HasAllRights() ? std::optional(may) : std::nullopt;
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
