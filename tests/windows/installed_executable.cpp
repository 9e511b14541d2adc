#include "windows/installed_executable.h"

InstalledExecutable::InstalledExecutable() {
    Run("-install");
}

InstalledExecutable::~InstalledExecutable() {
    Run("-remove");
}

std::string InstalledExecutable::Run(const std::string& arguments) {
    EXPECT_EQ(WatchedProcess(path, arguments).wait(), 0U) << arguments;
    std::string output = read_text(machine.bin_folder() + "output.txt");
    std::erase(output, '\r');
    return output;
}
