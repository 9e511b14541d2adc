// Group 4: events. Some steps run in the kit's own process, with the product's code.
#include "steps_event.h"

#include "trace_session.h"

namespace zorvalis::acceptance {

std::vector<Step> EventSteps() {
    return {
        {"4.1", "The event log's source names a file with the text of its entries", TextOfMessageFile},
        {"4.2", "An entry stands in the event log with the text that Event Viewer shows", EntriesOfEventLog},
        {"4.3", "A trace session that numbers messages gets both kinds, by level and flags", TraceOfNumberedSession, 90,
         TraceSession::Remove, false},
        {"4.4", "A trace session that does not number messages gets both kinds, too", TraceOfPlainSession, 90,
         TraceSession::Remove, false},
        {"4.5", "A trace session gets the lines of an installed program's pass", TraceOfInstalledProgram, 120,
         TraceSession::Remove},
        {"4.6", "A trace session gets the texts of the service's event provider", TextsOfServiceEvents, 60,
         TraceSession::Remove, false},
        {"4.7", "An event of Windows' own WMI reaches the product's receiver, and none after its end", EventOfWindows,
         90, nullptr, false},
        {"4.8", "Without the firmware's class the receiver hears that there is none", SetUpWithoutClass, 60, nullptr,
         false},
        {"4.9", "Events of the firmware's class reach it, each with its number, several in one call",
         EventsOfStandInClass, 150, RestoreWmi},
        {"4.10", "The installed service collects for an event of the firmware's class", EventsAtService, 300,
         RestoreWmi},
    };
}

}  // namespace zorvalis::acceptance
