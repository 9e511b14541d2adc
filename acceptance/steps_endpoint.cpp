#include "steps_endpoint.h"

namespace zorvalis::acceptance {

std::vector<Step> EndpointSteps() {
    std::vector<Step> all;
    for (auto* part : {InstalledEndpointSteps, WireSteps, CallSteps, FalseServiceSteps, CallerSteps}) {
        const std::vector<Step> its = part();
        all.insert(all.end(), its.begin(), its.end());
    }
    return all;
}

}  // namespace zorvalis::acceptance
