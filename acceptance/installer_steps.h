// As whom Windows Installer runs the steps of a package, seen while it does.
#pragma once

#include <atomic>
#include <set>
#include <string>
#include <thread>

namespace zorvalis::acceptance {

// Looks from its making to its end for programs that Windows Installer has unpacked, "MSI1A2B.tmp".
class InstallerSteps {
public:
    InstallerSteps();
    ~InstallerSteps() { Seen(); }
    InstallerSteps(const InstallerSteps&) = delete;
    InstallerSteps& operator=(const InstallerSteps&) = delete;

    // Ends the looking. Each program's folder with its user, "C:\Windows\Installer as S-1-5-18".
    const std::set<std::string>& Seen();

private:
    void Look();

    std::atomic<bool> over_ = false;
    std::set<std::string> seen_;
    std::thread thread_;
};

}  // namespace zorvalis::acceptance
