#include "windows/installed_executable.h"

namespace {

// The manager drops a deleted service when it has noticed that the service's process has ended.
bool IsGone() {
    int attempts = 3000;
    for (; OpenInstalled() != nullptr && attempts > 0; --attempts) {
        ::Sleep(10);
    }
    return attempts > 0;
}

}  // namespace

OwnedService OpenInstalled() {
    const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return OwnedService(::OpenServiceW(manager.get(), L"Zorvalis", SERVICE_ALL_ACCESS));
}

InstalledExecutable::InstalledExecutable() {
    Run("-install");
}

InstalledExecutable::~InstalledExecutable() {
    Run("-remove");
    EXPECT_TRUE(IsGone());
}

std::string InstalledExecutable::Run(const std::string& arguments) {
    EXPECT_EQ(WatchedProcess(path, arguments).wait(), 0U) << arguments;
    std::string output = read_text(machine.bin_folder() + "output.txt");
    std::erase(output, '\r');
    return output;
}
