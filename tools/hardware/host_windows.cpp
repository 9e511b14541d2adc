// No host is asked on Windows.
#include "host.h"

namespace zorvalis {

// Only a Linux host is read: on Windows the file answers always.
bool AskHost(const char*, std::string_view, Line&) {
    return false;
}

}  // namespace zorvalis
