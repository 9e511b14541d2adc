// The commands of zorvctl. Each function hangs its group below the application; a command runs while the arguments
// are parsed, and ends early by throwing a Failure.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zorvalis {

// Checks the N of an option such as --last.
inline std::string FromOne(const std::string& number) {
    return number == "0" ? "N begins at 1" : "";
}

void AddMachineCommands(CLI::App& app);
void AddShowCommand(CLI::App& app);
void AddUploadsCommand(CLI::App& app);
void AddSettingsCommand(CLI::App& app);
void AddRegistryCommands(CLI::App& app);
void AddTraceCommand(CLI::App& app);
void AddLogCommand(CLI::App& app);
void AddServiceCommands(CLI::App& app);
void AddCallCommands(CLI::App& app);
void AddEventCommands(CLI::App& app);
void AddTaskCommands(CLI::App& app);

}  // namespace zorvalis
