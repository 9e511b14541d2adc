#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> NetworkSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
