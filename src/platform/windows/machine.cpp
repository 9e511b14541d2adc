#include "platform/machine.h"

namespace platform {

std::string machine_folder() {
    return {};
}

std::string machine_problem() {
    return {};
}

}  // namespace platform
