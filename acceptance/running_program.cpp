#include "running_program.h"

#include "kit.h"
#include "part.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {

using platform::OwnedHandle;

RunningProgram::RunningProgram(const std::string& command, HANDLE token, const std::string& folder) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (::CreatePipe(&read, &write, &inherited, 0) == FALSE) {
        error_ = ::GetLastError();
        return;
    }
    pipe_.reset(read);
    const OwnedHandle writing(write);
    ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = write;
    startup.hStdError = write;
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    const std::wstring current = platform::to_wide(folder);
    // Windows takes a path of more than 260 characters only in this form and not out of a command line.
    const std::wstring program = line.starts_with(L"\"\\\\?\\") ? line.substr(1, line.find(L'"', 1) - 1) : L"";
    const wchar_t* const application = program.empty() ? nullptr : program.c_str();
    // A restricted form of the caller's own token takes no privilege.
    const BOOL started =
        token == nullptr
            ? ::CreateProcessW(application, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                               current.empty() ? nullptr : current.c_str(), &startup, &process)
            : ::CreateProcessAsUserW(token, application, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                     current.empty() ? nullptr : current.c_str(), &startup, &process);
    if (started == FALSE) {
        error_ = ::GetLastError();
        return;
    }
    process_.reset(process.hProcess);
    ::CloseHandle(process.hThread);
}

bool RunningProgram::Read() {
    const bool ended = process_ == nullptr || ::WaitForSingleObject(process_.get(), 10) == WAIT_OBJECT_0;
    bool any = false;
    DWORD size = 0;
    while (::PeekNamedPipe(pipe_.get(), nullptr, 0, nullptr, &size, nullptr) != FALSE && size != 0) {
        char buffer[4096];
        if (::ReadFile(pipe_.get(), buffer, sizeof buffer, &size, nullptr) == FALSE) {
            break;
        }
        text_.append(buffer, size);
        any = true;
    }
    return any || !ended;
}

std::string RunningProgram::Line(int seconds) {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (text_.find('\n') == std::string::npos && Read() && ::GetTickCount64() < limit) {
    }
    const std::size_t end = text_.find('\n');
    std::string line = text_.substr(0, end);
    text_.erase(0, end == std::string::npos ? end : end + 1);
    line.erase(line.find_last_not_of('\r') + 1);
    return line;
}

bool RunningProgram::Wait(int seconds, std::string& output, DWORD& code) {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (Read() && ::GetTickCount64() < limit) {
    }
    output = std::move(text_);
    return ::WaitForSingleObject(process_.get(), 0) == WAIT_OBJECT_0 &&
           ::GetExitCodeProcess(process_.get(), &code) != FALSE;
}

void RunningProgram::Kill() {
    if (process_ != nullptr) {
        ::TerminateProcess(process_.get(), ERROR_CANCELLED);
        ::WaitForSingleObject(process_.get(), 10000);
        process_.reset();
    }
}

void TellReady() {
    Say("ready");
}

PartProcess::PartProcess(Findings& findings, const std::string& part, const std::vector<std::string>& arguments)
    : RunningProgram(PartCommand(part, arguments)) {
    if (!started()) {
        findings.Fail("the part " + part + " cannot be started: " + ErrorText(error()));
    }
    if (const std::string line = Line(30); line != "ready") {
        DWORD code = 0;
        std::string rest;
        Wait(1, rest, code);
        findings.Fail("the part " + part + " is not ready: " + line + rest + ", " + ErrorText(code));
    }
}

int PartProcess::CodeOf(int seconds) {
    DWORD code = 0;
    std::string output;
    return Wait(seconds, output, code) ? static_cast<int>(code) : -1;
}

}  // namespace zorvalis::acceptance
