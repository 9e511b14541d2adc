#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> PackageSteps() {
    return {};
}

}  // namespace zorvalis::acceptance
