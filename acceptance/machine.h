// What the machine is, for whoever reads the report and was not there.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zorvalis::acceptance {

// Names with what Windows says, most of it from its registry: nothing that names the machine or its user.
std::vector<std::pair<std::string, std::string>> MachineFacts();

}  // namespace zorvalis::acceptance
