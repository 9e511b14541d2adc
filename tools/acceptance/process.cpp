#include "process.h"

#include <windows.h>

#include <thread>

#include "platform/windows/handles.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

constexpr std::size_t kMostOutput = 1 << 20;

// Ends when every process that has the pipe's other end has ended.
void ReadAll(HANDLE pipe, std::string& output) {
    char buffer[4096];
    DWORD size = 0;
    while (::ReadFile(pipe, buffer, sizeof buffer, &size, nullptr) != FALSE && size != 0) {
        if (output.size() < kMostOutput) {
            output.append(buffer, size);
        }
    }
}

}  // namespace

Ended RunProgram(const std::string& command, int seconds) {
    Ended ended;
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (::CreatePipe(&read, &write, &inherited, 0) == FALSE) {
        ended.code = ::GetLastError();
        return ended;
    }
    const platform::OwnedHandle reading(read);
    platform::OwnedHandle writing(write);
    ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    const platform::OwnedHandle job(::CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = write;
    startup.hStdError = write;
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr,
                         nullptr, &startup, &process) == FALSE) {
        ended.code = ::GetLastError();
        return ended;
    }
    ended.started = true;
    const platform::OwnedHandle owned(process.hProcess);
    const platform::OwnedHandle thread(process.hThread);
    ::AssignProcessToJobObject(job.get(), process.hProcess);
    ::ResumeThread(process.hThread);
    writing.reset();
    std::thread reader(ReadAll, read, std::ref(ended.output));
    ended.in_time = ::WaitForSingleObject(process.hProcess, static_cast<DWORD>(seconds) * 1000) == WAIT_OBJECT_0;
    // Also what the program has started and left behind, which may hold the pipe.
    ::TerminateJobObject(job.get(), ERROR_TIMEOUT);
    if (!ended.in_time) {
        ::TerminateProcess(process.hProcess, ERROR_TIMEOUT);
        ::WaitForSingleObject(process.hProcess, 10000);
    }
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ended.code = code;
    reader.join();
    return ended;
}

std::string Quoted(const std::string& word) {
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char character : word) {
        if (character == '"') {
            quoted.append(backslashes + 1, '\\');  // those before a quote count twice, and the quote needs one
        }
        backslashes = character == '\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    quoted.append(backslashes, '\\');
    return quoted + "\"";
}

}  // namespace zorvalis::acceptance
