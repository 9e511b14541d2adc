#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> TaskSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
