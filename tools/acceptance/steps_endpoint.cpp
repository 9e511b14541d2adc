#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> EndpointSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
