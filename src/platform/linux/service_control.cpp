#include "platform/linux/service_control.h"

#include <array>
#include <new>

#include "base/json.h"
#include "platform/stand_in/events.h"

namespace platform {
namespace {

constexpr std::uint32_t kFirstOwnControl = 128;  // of those that a service defines for itself
constexpr std::uint32_t kLastOwnControl = 255;

// The bit by which a service accepts the control, by its number; 0 for one that it cannot.
constexpr std::array<std::uint32_t, 17> kAcceptedBy = {0,    1,    2, 2,    0,    4,    8,     0x10, 0x10,
                                                       0x10, 0x10, 0, 0x20, 0x40, 0x80, 0x100, 0x200};

struct NoControl {
    const char* problem;
};

void need(bool holds, const char* problem) {
    if (!holds) {
        throw NoControl{problem};
    }
}

std::uint32_t number(const zorvalis::Json& value, const char* problem) {
    need(value.is_number_unsigned() && value.get<std::uint64_t>() <= UINT32_MAX, problem);
    return value.get<std::uint32_t>();
}

ServiceControl read_control(const zorvalis::Json& json) {
    need(json.is_object(), "a line is to be one JSON object");
    if (json.contains("status")) {
        need(json.size() == 1 && json["status"] == true, "status is to be true, and alone");
        return {true, 0, 0, std::nullopt};
    }
    need(json.contains("control"), "neither a control nor the status is asked for");
    ServiceControl result;
    std::optional<Guid> setting;
    std::optional<std::uint32_t> data;
    for (const auto& [name, value] : json.items()) {
        if (name == "control") {
            result.control = number(value, "control is to be a number from 0 to 4294967295");
        } else if (name == "event") {
            result.event_type = number(value, "event is to be a number from 0 to 4294967295");
        } else if (name == "data") {
            data = number(value, "data is to be a number from 0 to 4294967295");
        } else {
            need(name == "setting", "the members are control, event, setting and data, or status");
            setting = parse_guid(value.is_string() ? value.get_ref<const std::string&>() : "");
            need(setting.has_value(), "setting is to be a GUID, 36 characters long");
        }
    }
    need(setting.has_value() == data.has_value(), "setting and data go together");
    if (setting) {
        need(result.control == kControlPowerEvent && result.event_type == kPowerSettingChange,
             "a setting goes with control 13 and event 32787");
        result.change = {*setting, sizeof *data, *data};
    }
    return result;
}

}  // namespace

std::optional<ServiceControl> parse_service_control(const std::string& line, std::string& problem) {
    try {
        return read_control(zorvalis::ParseJson(line));
    } catch (const NoControl& none) {
        problem = none.problem;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        problem = "a line is to be one JSON object";
    }
    return std::nullopt;
}

bool is_manager_control(std::uint32_t control) {
    return (control >= kControlStop && control <= kControlInterrogate) || (control >= 6 && control <= 10) ||
           (control >= kFirstOwnControl && control <= kLastOwnControl);
}

std::uint32_t refusal(std::uint32_t control, const ServiceStatus& status) {
    if (status.state == kServiceStopped) {
        return kServiceNotActive;
    }
    const bool pending = status.state == kServiceStartPending || status.state == kServiceStopPending;
    if (is_manager_control(control) && pending) {
        return kServiceCannotAcceptControl;
    }
    const std::uint32_t bit = control < kAcceptedBy.size() ? kAcceptedBy[control] : 0;
    const bool always = control == kControlInterrogate || control >= kFirstOwnControl;
    const bool accepted = (status.accepted & bit) != 0 || (always && is_manager_control(control));
    return accepted ? 0 : kInvalidServiceControl;
}

}  // namespace platform
