#include "process.h"

#include <windows.h>

#include <algorithm>

#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kMostOutput = 1 << 20;

// A file for the output that goes with its last handle. A pipe would have to be read until whoever inherited it ends.
platform::OwnedHandle OutputFile() {
    wchar_t folder[MAX_PATH + 1] = {};
    wchar_t path[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH + 1, folder);
    if (::GetTempFileNameW(folder, L"zac", 0, path) == 0) {
        return nullptr;
    }
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const HANDLE file = ::CreateFileW(path, GENERIC_READ | GENERIC_WRITE | DELETE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    return platform::OwnedHandle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

std::string TextOf(HANDLE file) {
    std::string text(std::min(::GetFileSize(file, nullptr), kMostOutput), '\0');
    DWORD size = 0;
    ::SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    ::ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &size, nullptr);
    text.resize(size);
    return text;
}

}  // namespace

Ended RunProgram(const std::string& command, int seconds) {
    Ended ended;
    const platform::OwnedHandle output = OutputFile();
    if (output == nullptr) {
        ended.code = ::GetLastError();
        return ended;
    }
    const platform::OwnedHandle job(::CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    const BOOL made = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                                       CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr, nullptr, &startup, &process);
    if (made == FALSE) {
        ended.code = ::GetLastError();
        return ended;
    }
    ended.started = true;
    const platform::OwnedHandle owned(process.hProcess);
    const platform::OwnedHandle thread(process.hThread);
    ::AssignProcessToJobObject(job.get(), process.hProcess);
    ::ResumeThread(process.hThread);
    ended.inTime = ::WaitForSingleObject(process.hProcess, static_cast<DWORD>(seconds) * 1000) == WAIT_OBJECT_0;
    ::TerminateJobObject(job.get(), ERROR_TIMEOUT);  // also what the program has started and left behind
    if (!ended.inTime) {
        ::TerminateProcess(process.hProcess, ERROR_TIMEOUT);
        ::WaitForSingleObject(process.hProcess, 10000);
    }
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ended.code = code;
    ended.output = TextOf(output.get());
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

std::string SystemProgram(const std::string& name) {
    wchar_t folder[MAX_PATH] = {};
    const UINT length = ::GetSystemDirectoryW(folder, MAX_PATH);
    return Quoted(platform::to_utf8({folder, length}) + "\\" + name);
}

}  // namespace zorvalis::acceptance
