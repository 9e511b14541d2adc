// Keeps the states that last in power.json, and sends the running service the control that Windows would send.
#include "base/json.h"
#include "event.h"
#include "output.h"
#include "platform/files.h"
#include "platform/service_manager.h"
#include "platform/stand_in/events.h"
#include "platform/stand_in/line_client.h"
#include "platform/stand_in/service_control.h"
#include "service_process.h"

namespace zorvalis {

namespace {

constexpr std::uint32_t kSuspended = 4, kResumed = 7;  // the numbers that Windows has for these events

// Sends the control to the service. Returns why the service has not taken it; empty when it has.
std::string Deliver(const Json& control) {
    std::string text;
    if (!SendControl(DumpJson(control), text)) {
        return "no service is running";
    }
    const Json answer = text.empty() ? Json() : ParseJson(text);
    if (!answer.is_object()) {
        return "the service ended without an answer";
    }
    const std::uint32_t error = answer.value("result", 0U);
    return answer.contains("error")                    ? answer["error"].get<std::string>()
           : error == platform::kInvalidServiceControl ? "the service accepts no power events"
           : error != 0                                ? "the service answered with error " + std::to_string(error)
                                                       : "";
}

void Sleep(std::uint32_t event) {
    const std::string problem = Deliver({{"control", platform::kControlPowerEvent}, {"event", event}});
    Require(problem.empty(), problem);
}

void KeepState(const std::string& path, const std::string& setting, std::uint32_t state) {
    Json states = Json::object();
    try {
        states = platform::file_exists(path) ? ParseJson(ReadWholeFile(path)) : states;
        Require(states.is_object(), path + " is no JSON object");
    } catch (const std::logic_error& error) {
        throw Failure{path + " is no JSON: " + error.what()};
    }
    states[setting] = state;
    WriteIntoPlace(path, DumpJson(states) + "\n");
}

// Keeps the state even when no service is there to hear of it.
void Change(const std::string& machine, const platform::PowerSettingName& setting, std::uint32_t state) {
    KeepState(machine + "/" + platform::kPowerFile, setting.name, state);
    const std::string problem = Deliver({{"control", platform::kControlPowerEvent},
                                         {"event", platform::kPowerSettingChange},
                                         {"setting", setting.guid},
                                         {"data", state}});
    if (!problem.empty()) {
        Complain("the machine keeps the new state, but " + problem);
    }
}

void Firmware(std::int64_t number) {
    platform::LineClient receiver;
    Require(receiver.open(platform::kEventSocket, 0) && receiver.send(DumpJson({{"EventID", number}})),
            "nobody listens for events of the firmware: a running service does from two minutes after its start");
}

}  // namespace

void LetHappen(const std::string& event, std::int64_t value) {
    const std::string machine = StandInMachine();
    if (event == kFirmware) {
        return Firmware(value);
    }
    for (const platform::PowerSettingName& setting : platform::kPowerSettings) {
        if (event == setting.name) {
            return Change(machine, setting, static_cast<std::uint32_t>(value));
        }
    }
    Sleep(event == kSuspend ? kSuspended : kResumed);
}

}  // namespace zorvalis
