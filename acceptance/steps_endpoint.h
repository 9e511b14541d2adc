// The parts of the endpoint's group: each gives its steps in the order of their numbers.
#pragma once

#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> InstalledEndpointSteps();  // the service as it was installed
std::vector<Step> WireSteps();               // what goes over the wire, by both transfer syntaxes
std::vector<Step> CallSteps();               // many calls, calls that are given up, clients that die
std::vector<Step> FalseServiceSteps();       // servers that are not the service
std::vector<Step> CallerSteps();             // who may call, and as whom

}  // namespace zorvalis::acceptance
