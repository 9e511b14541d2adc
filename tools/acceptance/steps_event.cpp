#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> EventSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
