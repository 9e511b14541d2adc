#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> ServiceSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
