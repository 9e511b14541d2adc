// The lock of a database file, between processes and between people.
#include <windows.h>

#include <sddl.h>

#include <memory>
#include <string>

#include "kit.h"
#include "part.h"
#include "platform/file_lock.h"
#include "platform/files.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "running_program.h"
#include "steps_machine.h"
#include "system_part.h"
#include "user_token.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

using platform::FileLock;

constexpr char kLock[] = "zorv-acceptance.db";
constexpr wchar_t kMutex[] = L"Global\\Zorvalis zorv-acceptance.db";  // as the product names it

// How long to wait for the lock, and how long to hold it at most, in milliseconds; it is given back when the file that
// may be named third appears.
int Hold(const std::vector<std::string>& arguments) {
    Say("waits");
    const FileLock lock(kLock, std::stoul(arguments.at(0)));
    Say(lock.held() ? "has it" : "has it not");
    const ULONGLONG end = ::GetTickCount64() + std::stoul(arguments.at(1));
    while (lock.held() && ::GetTickCount64() < end && (arguments.size() < 3 || !platform::file_exists(arguments[2]))) {
        ::Sleep(20);
    }
    return 0;
}
const Part kHold("lock-hold", Hold);

// Makes the mutex before the product does, lets everybody open it, and keeps it.
int Take(const std::vector<std::string>&) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const std::wstring text = L"O:" + platform::to_wide(UserOf(::GetCurrentProcessToken())) + L"D:(A;;GA;;;WD)";
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr);
    const platform::Owned<::LocalFree, void*> memory(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
    const platform::OwnedHandle mutex(::CreateMutexW(&attributes, TRUE, kMutex));
    Say(mutex != nullptr ? "taken" : ErrorText(::GetLastError()));
    ::Sleep(30000);
    return 0;
}
const Part kTake("lock-take", Take);

void BetweenProcesses(Findings& findings) {
    RunningProgram holder(PartCommand("lock-hold", {"0", "30000"}));
    holder.Line();
    if (holder.Line() != "has it") {
        findings.Fail("another process gets the lock that nobody holds");
    }
    findings.Expect(!FileLock(kLock, 100).held(), "it is not given while another process holds it");
    holder.Kill();
    findings.Expect(FileLock(kLock, 10000).held(), "it goes with the process that was ended");
}

// Whom this process's new objects belong to.
std::string OwnOwner() {
    alignas(8) BYTE owner[sizeof(TOKEN_OWNER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    return ::GetTokenInformation(::GetCurrentProcessToken(), TokenOwner, owner, sizeof owner, &size) == FALSE
               ? ErrorText(::GetLastError())
               : SidText(reinterpret_cast<TOKEN_OWNER*>(owner)->Owner);
}

void WithLocalSystem(Findings& findings) {
    const WorkFolder folder;
    findings.Saw("what the administrator makes belongs to " + OwnOwner());
    {
        const SystemPart system(WorkFolder::Path("system.txt"), "lock-hold",
                                {"0", "60000", WorkFolder::Path("release.txt")});
        if (system.error() != 0) {
            findings.Fail("a service of the kit's cannot be started: " + ErrorText(system.error()));
        }
        if (!findings.Expect(system.HasPrinted("has it\n", 30), "LocalSystem gets the lock")) {
            findings.Fail("it printed: " + system.output());
        }
        findings.Expect(!FileLock(kLock, 0).held(), "the administrator does not get it meanwhile");
        WriteText(WorkFolder::Path("release.txt"), "");
        findings.Expect(FileLock(kLock, 20000).held(), "the administrator gets it from LocalSystem");
    }
    auto mine = std::make_unique<FileLock>(kLock, 10000);
    findings.Expect(mine->held(), "the administrator makes it first");
    const SystemPart system(WorkFolder::Path("system.txt"), "lock-hold", {"20000", "0"});
    const bool waits = system.HasPrinted("waits", 30);
    ::Sleep(500);
    const bool early = system.output().find("has it") != std::string::npos;
    mine.reset();
    findings.Expect(waits && !early, "LocalSystem waits for what the administrator made");
    if (!findings.Expect(system.Wait(30) && system.output().find("has it\n") != std::string::npos,
                         "LocalSystem gets it from the administrator")) {
        findings.Saw("it printed: " + system.output());
    }
}

void Strangers(Findings& findings) {
    const platform::OwnedHandle ordinary = UserToken(findings);
    const auto refusedSoon = [&](const std::string& what) {
        const ULONGLONG start = ::GetTickCount64();
        const bool held = FileLock(kLock, 20000).held();
        const ULONGLONG took = ::GetTickCount64() - start;
        findings.Expect(!held && took < 15000,
                        what + " is refused and not waited for (" + std::to_string(took) + " ms)");
    };
    {
        RunningProgram stranger(PartCommand("lock-take"), ordinary.get());
        if (const std::string line = stranger.Line(); line != "taken") {
            findings.Fail("an ordinary user cannot take the name: " + line + " " + ErrorText(stranger.error()));
        }
        refusedSoon("a mutex of that name that an ordinary user has made first");
    }
    {
        const platform::OwnedHandle event(::CreateEventW(nullptr, TRUE, FALSE, kMutex));
        refusedSoon("an event of that name");
    }
    findings.Expect(FileLock(kLock, 0).held(), "the lock is there again once the strangers are gone");
    RunningProgram after(PartCommand("lock-hold", {"0", "0"}), ordinary.get());
    after.Line();
    findings.Saw("an ordinary user of the product's own code: " + after.Line());
    const FileLock mine(kLock, 10000);
    RunningProgram second(PartCommand("lock-take"), ordinary.get());
    const std::string line = second.Line();
    findings.Expect(mine.held() && line != "taken", "an ordinary user may not open the product's lock: " + line);
}

}  // namespace

std::vector<Step> LockSteps() {
    return {
        {"7.1", "The lock of a database file keeps processes apart, and goes with a process that is ended",
         BetweenProcesses, 60, nullptr, false},
        {"7.2", "LocalSystem and an administrator share the lock of a database file", WithLocalSystem, 150,
         [] {
             RemoveSystemService();
             RemoveWorkFolder();
         },
         false},
        {"7.3", "A lock's name that a stranger has taken is not waited for", Strangers, 60, nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
