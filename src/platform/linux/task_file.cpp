#include "platform/stand_in/task_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "base/json.h"
#include "platform/clock.h"

namespace platform {
namespace {

constexpr std::int64_t kShortestInterval = 60;
constexpr std::int64_t kLongestInterval = 31 * 86400;

struct Unit {
    char letter;
    std::int64_t seconds;
    bool of_time;  // behind the "T"
};
constexpr std::array<Unit, 4> kUnits = {{{'D', 86400, false}, {'H', 3600, true}, {'M', 60, true}, {'S', 1, true}}};

// Takes a member of the right type, or leaves `value` alone when there is none.
template <class Value>
void take(const zorvalis::Json& object, const char* name, Value& value) {
    const auto member = object.find(name);
    if (member == object.end()) {
        return;
    }
    try {
        value = member->get<Value>();
    } catch (const std::domain_error&) {
        throw std::invalid_argument(std::string("its member \"") + name + "\" has another type than it should");
    }
}

zorvalis::Json object_in(const zorvalis::Json& object, const char* name) {
    zorvalis::Json member = zorvalis::Json::object();
    take(object, name, member);
    if (!member.is_object()) {
        throw std::invalid_argument(std::string("its member \"") + name + "\" is no object");
    }
    return member;
}

bool in_range(const std::string& interval) {
    const auto seconds = task_duration(interval);
    return interval.empty() || (seconds && *seconds >= kShortestInterval && *seconds <= kLongestInterval);
}

}  // namespace

std::string task_text(const std::string& name, const TaskDefinition& task) {
    using Ordered = nlohmann::ordered_json;
    const Ordered json = {
        {"name", name},
        {"author", task.author},
        {"runLevel", task.run_level},
        {"startWhenAvailable", task.start_when_available},
        {"executionTimeLimit", task.execution_time_limit},
        {"disallowStartIfOnBatteries", task.disallow_start_if_on_batteries},
        {"trigger", {{"id", task.trigger_id}, {"startBoundary", task.start_boundary}, {"interval", task.interval}}},
        {"action", {{"path", task.path}, {"arguments", task.arguments}}},
        {"user", task.user},
        {"logonType", task.logon_type},
        {"enabled", task.enabled},
    };
    return json.dump(4) + "\n";
}

TaskDefinition parse_task(const std::string& text) {
    const zorvalis::Json json = zorvalis::ParseJson(text);
    if (!json.is_object()) {
        throw std::invalid_argument("it is no JSON object");
    }
    const zorvalis::Json trigger = object_in(json, "trigger");
    const zorvalis::Json action = object_in(json, "action");
    TaskDefinition task;
    take(json, "author", task.author);
    take(json, "runLevel", task.run_level);
    take(json, "startWhenAvailable", task.start_when_available);
    take(json, "executionTimeLimit", task.execution_time_limit);
    take(json, "disallowStartIfOnBatteries", task.disallow_start_if_on_batteries);
    take(trigger, "id", task.trigger_id);
    take(trigger, "startBoundary", task.start_boundary);
    take(trigger, "interval", task.interval);
    take(action, "path", task.path);
    take(action, "arguments", task.arguments);
    take(json, "user", task.user);
    take(json, "logonType", task.logon_type);
    take(json, "enabled", task.enabled);
    const TaskFault fault = task_fault(task);
    if (fault == TaskFault::missing) {
        throw std::invalid_argument("it has no start boundary in its trigger, or no path in its action");
    }
    if (fault == TaskFault::invalid) {
        throw std::invalid_argument(
            "its start boundary is no time like 2026-11-12T09:08:00, or its interval (a minute to 31 days) or its "
            "execution time limit is no duration like PT5M");
    }
    return task;
}

TaskFault task_fault(const ScheduledTask& task) {
    if (task.path.empty() || task.start_boundary.empty()) {
        return TaskFault::missing;
    }
    const bool limit = task.execution_time_limit.empty() || task_duration(task.execution_time_limit);
    return limit && in_range(task.interval) && task_time(task.start_boundary) ? TaskFault::none : TaskFault::invalid;
}

std::optional<std::int64_t> next_start(const TaskDefinition& task, std::int64_t from) {
    const auto first = task_time(task.start_boundary);
    if (!task.enabled || !first || from <= *first) {
        return task.enabled ? first : std::nullopt;
    }
    const std::int64_t interval = task_duration(task.interval).value_or(0);
    return interval == 0 ? std::nullopt : std::optional(*first + (from - *first + interval - 1) / interval * interval);
}

std::optional<std::int64_t> task_duration(const std::string& text) {
    constexpr std::size_t kMostDigits = 9;
    std::string_view rest = text;
    if (!rest.starts_with('P') || rest.ends_with('P') || rest.ends_with('T')) {
        return std::nullopt;
    }
    rest.remove_prefix(1);
    std::int64_t seconds = 0;
    bool time = false;
    for (auto unit = kUnits.begin(); !rest.empty();) {
        if (!time && rest.front() == 'T') {
            time = true;
            rest.remove_prefix(1);
        }
        const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
        if (digits == 0 || digits == rest.size() || digits > kMostDigits) {
            return std::nullopt;
        }
        // Each unit at most once, the largest first.
        unit = std::find_if(unit, kUnits.end(),
                            [&](const Unit& each) { return each.letter == rest[digits] && each.of_time == time; });
        if (unit == kUnits.end()) {
            return std::nullopt;
        }
        seconds += std::stoll(std::string(rest.substr(0, digits))) * unit->seconds;
        rest.remove_prefix(digits + 1);
        ++unit;
    }
    return seconds;
}

std::optional<std::int64_t> task_time(const std::string& text) {
    constexpr std::string_view kForm = "0000-00-00T00:00:00";
    const auto fits = [](char c, char form) { return form == '0' ? c >= '0' && c <= '9' : c == form; };
    std::tm local{};
    if (!std::equal(text.begin(), text.end(), kForm.begin(), kForm.end(), fits) ||
        std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &local.tm_year, &local.tm_mon, &local.tm_mday,
                    &local.tm_hour, &local.tm_min, &local.tm_sec) != 6 ||
        !(std::chrono::year(local.tm_year) / local.tm_mon / local.tm_mday).ok() || local.tm_hour > 23 ||
        local.tm_min > 59 || local.tm_sec > 59) {
        return std::nullopt;
    }
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    return local_seconds(local);
}

}  // namespace platform
