// The commands of zorvctl. Each function adds its group to the application. The command line library runs a command as
// a callback while it parses the arguments; a command that fails throws a Failure (output.h).
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zorvalis {

// A validator for the N of an option such as --last: empty, or the complaint.
inline std::string FromOne(const std::string& number) {
    const bool digits = !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
    return digits && number[0] != '0' && number.size() < 10 ? "" : "N is a whole number from 1 to 999999999";
}

void AddMachineCommands(CLI::App& app);
void AddStatusCommand(CLI::App& app);
void AddShowCommand(CLI::App& app);
void AddQueryCommand(CLI::App& app);
void AddHealthCommand(CLI::App& app);
void AddColumnsCommand(CLI::App& app);
void AddReportCommand(CLI::App& app);
void AddExportCommand(CLI::App& app);
void AddUploadsCommand(CLI::App& app);
void AddSettingsCommand(CLI::App& app);
void AddSettingsCheck(CLI::App& app);  // behind AddSettingsCommand
void AddServerCommands(CLI::App& app);
void AddForgetCommand(CLI::App& app);
void AddManualCommands(CLI::App& app);
void AddRegistryCommands(CLI::App& app);
void AddTraceCommand(CLI::App& app);
void AddLogCommand(CLI::App& app);
void AddServiceCommands(CLI::App& app);
void AddCallCommands(CLI::App& app);
void AddEventCommands(CLI::App& app);
void AddTaskCommands(CLI::App& app);

}  // namespace zorvalis
