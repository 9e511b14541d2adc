#include "children.h"

#include "kit.h"
#include "process.h"

namespace zorvalis::acceptance {

std::vector<Child> AllChildren() {
    return {
        {"service", ServiceChild},
    };
}

std::string ChildCommand(const std::string& name, const std::vector<std::string>& arguments) {
    std::string command = Quoted(KitFolder() + "\\zorv-acceptance.exe") + " --child " + name;
    for (const std::string& argument : arguments) {
        command += " " + Quoted(argument);
    }
    return command;
}

}  // namespace zorvalis::acceptance
