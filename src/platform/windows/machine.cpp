// There is no stand-in machine on Windows.
#include "platform/machine.h"

namespace platform {

std::string machine_folder() {
    return {};
}

std::string machine_problem() {
    return {};
}

}  // namespace platform
