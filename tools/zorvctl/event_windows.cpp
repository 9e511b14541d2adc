// Windows needs no stand-in for what happens to it, so the command only says so.
#include "event.h"

#include "output.h"

namespace zorvalis {

void LetHappen(const std::string&, std::int64_t) {
    StandInMachine("the machine is the real one, and what happens to it happens");
}

}  // namespace zorvalis
