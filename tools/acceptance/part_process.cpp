#include "part_process.h"

#include <atomic>

#include "kit.h"
#include "part.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kReadyLimit = 30000;
constexpr DWORD kEndLimit = 10000;

}  // namespace

PartProcess::PartProcess(Findings& findings, const std::string& part, const std::vector<std::string>& arguments) {
    static std::atomic<int> count = 0;
    const std::string name =
        "zorv-acceptance-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++count);
    const platform::OwnedHandle ready(::CreateEventW(nullptr, TRUE, FALSE, platform::to_wide(name).c_str()));
    std::vector<std::string> words = {name, std::to_string(::GetCurrentProcessId())};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::wstring line = platform::to_wide(PartCommand(part, words));
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                         &process) == FALSE) {
        findings.Fail("the part " + part + " cannot be started: " + ErrorText(::GetLastError()));
    }
    ::CloseHandle(process.hThread);
    process_.reset(process.hProcess);
    const HANDLE either[] = {ready.get(), process_.get()};
    if (::WaitForMultipleObjects(2, either, FALSE, kReadyLimit) != WAIT_OBJECT_0) {
        DWORD code = 0;
        ::GetExitCodeProcess(process_.get(), &code);
        Kill();
        findings.Fail("the part " + part + " was not ready: " + ErrorText(code));
    }
}

PartProcess::~PartProcess() {
    Kill();
}

void PartProcess::Kill() {
    ::TerminateProcess(process_.get(), ERROR_PROCESS_ABORTED);
    ::WaitForSingleObject(process_.get(), kEndLimit);
}

bool PartProcess::WaitForEnd(int seconds, DWORD& code) {
    return ::WaitForSingleObject(process_.get(), static_cast<DWORD>(seconds) * 1000) == WAIT_OBJECT_0 &&
           ::GetExitCodeProcess(process_.get(), &code) != FALSE;
}

Readiness::Readiness(const std::vector<std::string>& words) {
    arguments.assign(words.begin() + 2, words.end());
    event_.reset(::OpenEventW(EVENT_MODIFY_STATE, FALSE, platform::to_wide(words.at(0)).c_str()));
    parent_.reset(::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(std::stoul(words.at(1)))));
}

void Readiness::WaitForParent(int seconds) const {
    ::WaitForSingleObject(parent_.get(), static_cast<DWORD>(seconds) * 1000);
}

}  // namespace zorvalis::acceptance
