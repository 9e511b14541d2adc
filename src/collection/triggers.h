// Why a sample is taken (the job trigger), which file it goes to for that reason alone, and the bits that say what a
// collect job is to do.
#pragma once

#include <cstdint>

namespace zorvalis {

// What a collect job is to do, as bits of a mask: thermal, battery and system samples, an upload, records of events.
enum FuncMask : std::uint32_t {
    CJ_THERMAL = 1,
    CJ_BATTERYPOWER = 2,
    CJ_SYSTEMINFO = 4,
    CJ_UPLOAD = 8,
    CJ_POWERONOFF = 16,
    CJ_SUSPENDRESUME = 32,
    CJ_ACDC = 64,
    CJ_LIDOPENCLOSE = 128,
    CJ_QUIETFAN = 256,
    CJ_BATTERYHEALTH = 512,
    CJ_WMIEVENT = 1024,
};

// Stored in a sample's column `freq`. 0 to 9 are timed samples, with the number of their period code.
enum JobTrigger : std::int32_t {
    JOB_TRIGGER_POWER_ON = 10,
    JOB_TRIGGER_POWER_OFF = 11,
    JOB_TRIGGER_SUSPEND = 12,
    JOB_TRIGGER_RESUME = 13,
    JOB_TRIGGER_AC_IN = 14,
    JOB_TRIGGER_AC_OUT = 15,
    JOB_TRIGGER_LID_OPEN = 16,
    JOB_TRIGGER_LID_CLOSE = 17,
    JOB_TRIGGER_QUIET_FAN_ON = 18,
    JOB_TRIGGER_QUIET_FAN_OFF = 19,
    JOB_TRIGGER_BATTERY_HEALTH_100 = 20,
    JOB_TRIGGER_BATTERY_HEALTH_80 = 21,
    JOB_TRIGGER_BATTERY_HEALTH_60 = 22,
    JOB_TRIGGER_WMI_DGPU = 23,
    JOB_TRIGGER_WMI_CONNECTOR = 24,
};

// The family of a database file: timed samples, events, hardware events. Its number is the file's type for the upload.
enum class DbClass : std::int32_t { periodic = 1, event = 2, wmi_event = 3 };

// A number that is not one of the events above counts as timed.
constexpr DbClass classOfTrigger(std::int32_t triggerType) {
    if (triggerType >= JOB_TRIGGER_POWER_ON && triggerType <= JOB_TRIGGER_BATTERY_HEALTH_60) {
        return DbClass::event;
    }
    if (triggerType == JOB_TRIGGER_WMI_DGPU || triggerType == JOB_TRIGGER_WMI_CONNECTOR) {
        return DbClass::wmi_event;
    }
    return DbClass::periodic;
}

// What the name of a file of that class begins with.
constexpr const char* LetterOf(DbClass dbClass) {
    return dbClass == DbClass::event ? "E" : dbClass == DbClass::wmi_event ? "W" : "O";
}

}  // namespace zorvalis
