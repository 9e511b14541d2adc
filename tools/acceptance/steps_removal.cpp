#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> RemovalSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
