// The time zone of Windows, changed for a step. What was set before is kept in the kit's journal and set again.
#pragma once

namespace zorvalis::acceptance {

class ChangedZone {
public:
    ChangedZone() = default;
    ~ChangedZone();
    ChangedZone(const ChangedZone&) = delete;
    ChangedZone& operator=(const ChangedZone&) = delete;

    // A zone by its name in the registry, "W. Europe Standard Time". 0, or a Windows error; ERROR_NOT_SUPPORTED where
    // Windows takes the zone and does not change to it.
    unsigned long Set(const wchar_t* name);
};

// Sets the zone that a step has left changed. Raises std::runtime_error when it cannot.
void RestoreZone();

}  // namespace zorvalis::acceptance
