// The steps of group 4, which steps_event.cpp numbers.
#pragma once

#include "step.h"

namespace zorvalis::acceptance {

// steps_event_log.cpp
void TextOfMessageFile(Findings& findings);
void EntriesOfEventLog(Findings& findings);

// steps_event_trace.cpp
void TraceOfNumberedSession(Findings& findings);
void TraceOfPlainSession(Findings& findings);
void TraceOfInstalledProgram(Findings& findings);
void TextsOfServiceEvents(Findings& findings);

// steps_event_wmi.cpp
void EventOfWindows(Findings& findings);
void SetUpWithoutClass(Findings& findings);
void EventsOfStandInClass(Findings& findings);
void EventsAtService(Findings& findings);
void RestoreWmi();

}  // namespace zorvalis::acceptance
