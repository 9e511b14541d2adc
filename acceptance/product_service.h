// The product's service in the hands of the service manager, as the steps ask for it. Waits have limits; a call that
// fails leaves its Windows error in GetLastError.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/windows/handles.h"
#include "step.h"

namespace zorvalis::acceptance {

using OwnedService = platform::Owned<::CloseServiceHandle, SC_HANDLE>;

// A service by its name, with these rights; null when it cannot be opened.
OwnedService OpenTheService(const std::wstring& name, DWORD rights);

// The product's.
OwnedService OpenProduct(DWORD rights);

std::optional<SERVICE_STATUS_PROCESS> StatusOf(SC_HANDLE service);

// Looks every tenth of a second, until it has the state; false after `seconds`.
bool WaitForState(SC_HANDLE service, DWORD state, int seconds);

// Ends the step as not possible where the product's service cannot run: this Windows lacks a function that it needs.
void NeedRunnable(Findings& findings);

// To RUNNING, or to STOPPED, within half a minute; else the step has failed and ends. One that is there already stays.
void StartProduct(Findings& findings);
void StopProduct(Findings& findings);

// Once nothing else can change it: the service's process as a handle with these rights; null when it has none.
platform::OwnedHandle ProductProcess(DWORD rights);

// When the service's process began, in milliseconds since 1970; else the step has failed and ends.
std::int64_t BeganAt(Findings& findings);
std::int64_t Milliseconds1970();  // now

// For a step that needs what the service begins two minutes after its start: waits for that long from the start of its
// process, and two seconds more. Returns when that was, in seconds since 1970.
std::int64_t WaitForLateStart(Findings& findings);

}  // namespace zorvalis::acceptance
