// Windows needs no stand-in for what happens to it, so the command only says so.
#include "event.h"

#include "output.h"
#include "windows_tools.h"

namespace zorvalis {

void LetHappen(const std::string&, std::int64_t) {
    StandInMachine("things happen to the computer itself; what the service made of them: `zorvctl show`, and `" +
                   EventLogCommand(0) + "`");
}

}  // namespace zorvalis
