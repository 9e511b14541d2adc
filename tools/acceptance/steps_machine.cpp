#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> MachineSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
