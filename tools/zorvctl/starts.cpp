// The first links of a status: the service, its endpoint, and the scheduled task that starts passes.
#include <cstdio>
#include <filesystem>

#include "base/json.h"
#include "common/wide_to_utf8.h"
#include "facts.h"
#include "host.h"
#include "jobs/task_scheduler_setting.h"
#include "output.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/service_manager.h"
#include "platform/task_scheduler.h"
#include "service/zorvalis_service.h"
#include "service_process.h"

namespace zorvalis {

namespace {

using platform::kServiceDoesNotExist;

constexpr std::uint32_t kMayConnect = 1, kMayQuery = 4;
constexpr std::int64_t kArmed = 180;           // seconds after its start within which the service makes the task
constexpr std::int64_t kFarAhead = 2 * 86400;  // no pass puts the task off by more than 25 hours
constexpr const char* kExecutable[] = {"ZorvalisWinService.exe", "zorvalis-agent-service"};

enum class Service { missing, stopped, changing, running, unknown };

Service ReadService() {
    platform::ServiceManager manager;
    platform::ServiceStatus status{};
    if (!manager.open(kMayConnect) || !manager.open_service(L"Zorvalis", kMayQuery) || !manager.query_service(status)) {
        return platform::last_error() == kServiceDoesNotExist ? Service::missing : Service::unknown;
    }
    return status.state == kStopped   ? Service::stopped
           : status.state == kRunning ? Service::running
                                      : Service::changing;
}

// The command that registers the service: its executable lies beside the tool.
std::string InstallCommand() {
    const bool windows = platform::machine_folder().empty();
    return "`\"" + OwnFile(kExecutable[windows ? 0 : 1]) + "\" -install`";
}

void AddService(std::vector<Link>& links, Service service) {
    const bool running = service == Service::running, there = service != Service::missing;
    const bool known = service != Service::unknown;
    // Without the service passes go on: what it alone does is to record events and to arm the task.
    links.push_back({"service", there && known ? LinkState::held : LinkState::warning,
                     !known  ? "its state cannot be asked for: error " + std::to_string(platform::last_error())
                     : there ? "Zorvalis is in the service database"
                             : "there is no service Zorvalis: no events are recorded, and nobody arms the task",
                     there ? "" : InstallCommand()});
    if (!there || !known) {
        return;
    }
    links.push_back({"running", running ? LinkState::held : LinkState::warning,
                     running                        ? "it is running"
                     : service == Service::changing ? "it is starting or stopping"
                                                    : "it is stopped: no events are recorded",
                     running ? "" : "`zorvctl service start`"});
    if (running) {
        const bool listens = EndpointListens();
        links.push_back({"endpoint", listens ? LinkState::held : LinkState::warning,
                         listens ? "it listens for applications" : "nobody listens for applications, their calls fail",
                         listens ? "" : "`zorvctl service stop`, then `zorvctl service start`"});
    }
}

// By the rule of the service's command line: the first word counts, in any case.
bool StartsPass(const std::string& arguments) {
    char word[8] = "";
    std::sscanf(arguments.c_str(), " \"%6[^\" \t]", word) == 1 || std::sscanf(arguments.c_str(), "%6s", word);
    return (word[0] == '-' || word[0] == '/') && (word[1] == 'j' || word[1] == 'J') && word[2] == '0' &&
           word[3] == '\0';
}

// What is wrong with the program that the task starts; empty when nothing is.
std::string ActionProblem(const platform::RegisteredTask& task) {
    namespace fs = std::filesystem;
    const std::string path = platform::native_path(task.path);
    constexpr fs::perms kAny = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
    std::error_code error;
    return !platform::file_exists(task.path) ? "what the scheduled task starts is missing: " + task.path
           : fs::path(path).filename() != kExecutable[platform::machine_folder().empty() ? 0 : 1]
               ? "the scheduled task starts something else than the service: " + task.path
           : (fs::status(path, error).permissions() & kAny) == fs::perms::none
               ? "what the scheduled task starts is no executable file: " + task.path
           : StartsPass(task.arguments)
               ? ""
               : "the scheduled task starts no pass, since its arguments are \"" + task.arguments + "\" instead of -j0";
}

// Why no pass starts by the task; empty when one does.
std::string TaskProblem(const platform::TaskResult& result, const platform::RegisteredTask& task) {
    if (result.status < 0) {
        char number[16];
        std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(result.status));
        return result.status == platform::kNoSuchTask
                   ? "no scheduled task starts passes"
                   : std::string("the scheduled task cannot be read or is broken: ") + number;
    }
    return !task.enabled          ? "the scheduled task is disabled, as while the machine is off"
           : task.next_start == 0 ? "the scheduled task has no start to come"
                                  : ActionProblem(task);
}

}  // namespace

void ReadStarts(Facts& facts) {
    const Service service = ReadService();
    AddService(facts.links, service);
    platform::RegisteredTask task;
    const std::string name = WideToUtf8(kCollectionTask);
    const platform::TaskResult result = platform::find_task(name, facts.now, task);
    const std::string problem = ReadableText(TaskProblem(result, task));
    const auto since = static_cast<std::int64_t>(service == Service::running ? InStateSince(kRunning) : 0);
    const std::string mend = service == Service::running   ? "`zorvctl service stop`, then `zorvctl service start`"
                             : service == Service::missing ? InstallCommand() + ", then `zorvctl service start`"
                                                           : "`zorvctl service start`";
    if (problem.empty()) {
        const bool far = task.next_start - facts.now > kFarAhead;
        facts.firstStart = task.next_start;
        facts.interval = task.interval;
        facts.links.push_back({"task", far ? LinkState::broken : LinkState::held,
                               "it starts the next pass at " + MinuteText(task.next_start) +
                                   (far ? ", days from now, as after a clock was set back" : ""),
                               mend, far});
    } else if (since > 0 && facts.now - since < kArmed &&
               (result.status >= 0 || result.status == platform::kNoSuchTask)) {
        facts.firstStart = SoonStart(since + kWorkDelay / 1000);
        facts.interval = 300;
        facts.links.push_back(
            {"task", LinkState::warning, "the service, just started, will make the scheduled task within two minutes"});
    } else if (result.status < 0 && !HasAllRights()) {
        facts.links.push_back({"task", LinkState::unknown, "only administrators see the scheduled task",
                               "run `zorvctl status` as administrator"});
    } else {
        const std::string later = "; two minutes later it makes the task, once the machine is a week old";
        facts.links.push_back({"task", LinkState::broken, problem, mend + later});
    }
    const bool started = TasksAreStarted(), windows = platform::machine_folder().empty();
    facts.links.push_back({"runner",
                           started   ? LinkState::held
                           : windows ? LinkState::broken
                                     : LinkState::warning,
                           started   ? "scheduled tasks are started"
                           : windows ? "Windows' own task scheduler does not run"
                                     : "nobody starts the scheduled tasks of this stand-in machine",
                           started   ? ""
                           : windows ? "`sc.exe start Schedule`"
                                     : "`zorvctl tasks run`"});
}

}  // namespace zorvalis
