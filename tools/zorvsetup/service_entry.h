// The service's entry in the database of Windows' service manager: read, written as a whole, deleted; and the service
// stopped and started. Each function is complete in itself and raises a Failure.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"

namespace zorvalis {

struct ServiceEntry {
    std::uint32_t type = 0, startType = 0, errorControl = 0;  // in Windows' numbers
    std::wstring displayName, command, account, description;
    std::wstring dependencies;  // names, each ended by a null
    std::uint32_t resetSeconds = 0;
    std::vector<std::uint32_t> restarts;  // recovery: milliseconds until Windows restarts it, for each failure in turn
    bool alsoAfterErrors = false;         // recovery also when it stops by itself and reports an error
    std::uint32_t preShutdownMilliseconds = 0;
};

// As it is to be: what -install makes, with a quoted path and the rest that -install leaves at Windows' defaults.
ServiceEntry WantedEntry(const std::wstring& executable);

std::optional<ServiceEntry> ReadEntry();
void WriteEntry(const ServiceEntry& entry);  // makes it where there is none
void DeleteEntry();                          // does nothing where there is none

Json ToJson(const ServiceEntry& entry);
ServiceEntry FromJson(const Json& json);

// The executable that a command line starts, in the form in which Windows names the images of processes.
std::wstring ExecutableOf(const std::wstring& command);

bool IsServiceRunning();  // or starts, or stops
// Returns when the service is seen stopped. A Failure when it is not in time; it may stop later all the same.
void StopService(std::chrono::seconds limit);
void StartService(std::chrono::seconds limit);

}  // namespace zorvalis
