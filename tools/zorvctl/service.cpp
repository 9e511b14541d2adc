// `zorvctl service`: starts the service as the service manager does, tells its state, and sends it controls.

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <thread>

#include "base/json.h"
#include "commands.h"
#include "common/code_page.h"
#include "host.h"
#include "output.h"
#include "platform/error.h"
#include "platform/service_manager.h"
#include "service/service_base.h"
#include "service_process.h"

namespace zorvalis {

namespace {

using platform::ServiceStatus;

constexpr std::uint32_t kMayConnect = 1, kMayQuery = 4, kMayStop = 0x20, kMayInterrogate = 0x80;
constexpr auto kPause = std::chrono::milliseconds(20);
constexpr auto kStartLimit = std::chrono::seconds(30);

constexpr const char* kStates[] = {"unknown", "stopped",    "starting", "stopping",
                                   "running", "continuing", "pausing",  "paused"};

constexpr struct {
    std::uint32_t bit;
    const char* words;
} kControls[] = {
    {1, "stop"},
    {2, "pause and continue"},
    {4, "shutdown"},
    {8, "changed parameters"},
    {0x10, "changed bindings"},
    {0x20, "changed hardware profile"},
    {0x40, "power events"},
    {0x80, "session changes"},
    {0x100, "pre-shutdown"},
    {0x200, "changed time"},
    {0x400, "trigger events"},
};

std::string StateWord(std::uint32_t state) {
    return state < std::size(kStates) ? kStates[state] : std::to_string(state);
}

std::string AcceptedWords(std::uint32_t accepted) {
    std::string words;
    for (const auto& [bit, each] : kControls) {
        words += (accepted & bit) == 0 ? "" : (words.empty() ? "" : ", ") + std::string(each);
    }
    return words.empty() ? "nothing" : words;
}

std::string ErrorWords(std::uint32_t error, const std::string& name) {
    switch (error) {
        case platform::kAccessDenied:
            return "access is denied: this takes an administrator";
        case platform::kInvalidServiceControl:
            return name + " does not accept this control";
        case platform::kServiceRequestTimeout:
            return name + " has not answered within 30 seconds; `zorvctl service status` tells how it is";
        case platform::kServiceDoesNotExist:
            return "there is no service " + name + " on this machine: its executable registers it with -install";
        case platform::kServiceCannotAcceptControl:
            return name + " is starting or stopping and takes no controls now";
        case platform::kServiceNotActive:
            return name + " is not running; `zorvctl service start` starts it";
        default:
            return name + " answered with error " + std::to_string(error);
    }
}

class Service {
public:
    Service(const std::string& name, std::uint32_t access) : name_(name) {
        CheckMachine();
        Check(manager_.open(kMayConnect) && manager_.open_service(Utf82Unicode(name).c_str(), access));
    }

    ServiceStatus Query() {
        ServiceStatus status{};
        Check(manager_.query_service(status));
        return status;
    }

    void Send(std::uint32_t control) {
        ServiceStatus status{};
        Check(manager_.control_service(control, status));
    }

    // A service that ends quickly may be gone before it has answered; that counts as stopped, not as a failure.
    void SendStop() {
        ServiceStatus status{};
        const bool sent = manager_.control_service(SERVICE_CONTROL_STOP, status);
        const std::uint32_t error = platform::last_error();
        const bool ended = error != platform::kServiceNotActive && Query().state == kStopped;
        Require(sent || ended, ErrorWords(error, name_));
    }

private:
    void Check(bool done) const {
        if (!done) {
            throw Failure{ErrorWords(platform::last_error(), name_)};
        }
    }

    std::string name_;
    platform::ServiceManager manager_;
};

std::string ExitWords(std::uint32_t exitCode) {
    return exitCode == platform::kServiceNeverStarted ? "never started"
           : exitCode == platform::kProcessAborted    ? "none: it ended without a report"
                                                      : std::to_string(exitCode);
}

void PrintStatus(const std::string& name, const ServiceStatus& status) {
    const std::string hint = status.wait_hint == 0 ? "" : ", wait " + std::to_string(status.wait_hint) + " ms";
    const double since = InStateSince(status.state);
    Print(FitTo(name, 12) + StateWord(status.state) + (since > 0 ? " since " + LocalTimeText(since) : "") + "\n");
    if (status.state != kStopped) {
        Print("accepts     " + AcceptedWords(status.accepted) + "\n");
        Print("checkpoint  " + std::to_string(status.checkpoint) + hint + "\n");
    }
    Print("exit code   " + ExitWords(status.exit_code) + "\n");
}

void PrintJson(const std::string& name, const ServiceStatus& status) {
    Json controls = Json::array();
    for (const auto& [bit, words] : kControls) {
        if ((status.accepted & bit) != 0) {
            controls.push_back(words);
        }
    }
    const double since = InStateSince(status.state);
    Print(DumpJson({{"service", ReadableText(name, false)},
                    {"state", StateWord(status.state)},
                    {"since", since > 0 ? Json(since) : Json(nullptr)},
                    {"accepts", controls},
                    {"checkpoint", status.checkpoint},
                    {"waitHint", status.wait_hint},
                    {"exitCode", status.exit_code}}) +
          "\n");
}

void Status(const std::string& name, bool asJson) {
    const ServiceStatus status = Service(name, kMayQuery).Query();
    (asJson ? PrintJson : PrintStatus)(name, status);
    Require(status.state != kStopped, "");
}

// Why the start or run counts as failed, once the service has ended; empty when it stopped in order.
std::string EndWords(const std::string& name, const ServiceStatus& status, const StartedService& started) {
    const std::string death = started.Death();
    if (!started.HasReported()) {
        return name + " ended without a report" + (death.empty() ? "" : ": " + death);
    }
    if (!death.empty()) {
        return name + " has not stopped as it should: " + death;
    }
    return status.exit_code == 0 ? "" : name + " stopped with exit code " + ExitWords(status.exit_code);
}

void Run(const std::string& name) {
    StandInMachine("the service manager starts services: `sc.exe start " + name + "`, or `zorvctl service start`");
    Service service(name, kMayQuery);
    Require(service.Query().state == kStopped, name + " is running already");
    StartedService started(name, Ground::foreground);
    started.WaitForEnd();
    const std::string problem = EndWords(name, service.Query(), started);
    Require(problem.empty(), problem);
}

void Start(const std::string& name) {
    Service service(name, kMayQuery);
    ServiceStatus status = service.Query();
    Require(status.state == kStopped, name + " is running already");
    StartedService started(name, Ground::background);
    const std::string output = started.Output().empty() ? "" : "; its output goes to " + started.Output();
    const auto limit = std::chrono::steady_clock::now() + kStartLimit;
    do {
        Require(
            std::chrono::steady_clock::now() < limit,
            name +
                (status.state == kRunning ? " is running, but nobody listens at its endpoint after 30 seconds"
                                          : " has not said within 30 seconds that it is running, and was left alone") +
                output);
        std::this_thread::sleep_for(kPause);
        status = service.Query();
        // The service reports that it runs a moment before its endpoint listens.
        if (status.state == kRunning && (name != "Zorvalis" || EndpointListens())) {
            return Print(name + " is running" + output + "\n");
        }
    } while (!started.HasEnded(status));
    const std::string problem = EndWords(name, service.Query(), started);
    throw Failure{(problem.empty() ? name + " has stopped again" : problem) + output};
}

void Stop(const std::string& name) {
    Service service(name, kMayQuery | kMayStop);
    const RunningService running;
    service.SendStop();
    ServiceStatus status = service.Query();
    while (status.state == kStopPending) {
        std::this_thread::sleep_for(kPause);
        status = service.Query();
    }
    Require(status.state == kStopped, name + " failed to stop: it is " + StateWord(status.state));
    running.WaitForEnd();
    Print(name + " has stopped\n");
}

void Preshutdown(const std::string& name) {
    StandInMachine("Windows alone sends this control, when it shuts down: `shutdown.exe /s /t 0`");
    Service service(name, kMayQuery);
    const RunningService running;
    std::string answer;
    Require(SendControl(R"({"control": 15})", answer), ErrorWords(platform::kServiceNotActive, name));
    Require(!answer.empty(), name + " ended without an answer");
    const std::uint32_t error = ParseJson(answer).value("result", 0U);
    Require(error == 0, ErrorWords(error, name));
    const std::uint32_t state = service.Query().state;
    Require(state == kStopped, name + " took the control, but has not stopped: it is " + StateWord(state));
    running.WaitForEnd();
    Print(name + " has stopped for the shutdown\n");
}

void Interrogate(const std::string& name) {
    Service service(name, kMayQuery | kMayInterrogate);
    service.Send(SERVICE_CONTROL_INTERROGATE);
    PrintStatus(name, service.Query());
}

}  // namespace

void AddServiceCommands(CLI::App& app) {
    const auto name = std::make_shared<std::string>("Zorvalis");
    CLI::App* group = app.add_subcommand("service", "Starts the service, says how it is, sends it controls");
    group->require_subcommand(1);
    const auto add = [&](const char* command, const char* what, void (*action)(const std::string&)) {
        CLI::App* added = group->add_subcommand(command, what);
        added->add_option("NAME", *name, "The service, when it is not Zorvalis");
        added->callback([name, action] { action(*name); });
        return added;
    };
    add("run", "Runs it in the foreground until it has stopped; Ctrl-C stops it", Run);
    add("start", "Starts it in the background and waits until it is running", Start);
    const auto asJson = std::make_shared<bool>(false);
    const auto status = [name, asJson] { Status(*name, *asJson); };
    CLI::App* state =
        add("status", "Its state, the controls that it accepts, its exit code; fails when it is not running", nullptr);
    state->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    state->callback(status);
    add("stop", "Stops it and waits for its end", Stop);
    add("preshutdown", "Tells it that the machine shuts down, and waits for its end", Preshutdown);
    add("interrogate", "Asks it to report, and prints its state", Interrogate);
}

}  // namespace zorvalis
