#include "windows/held_context.h"

#include <cwchar>
#include <stdexcept>

#include "zorvalis_client.h"

namespace {

constexpr wchar_t kArgument[] = L"--hold-context";
constexpr wchar_t kOpened[] = L"ZorvalisContextOpened";
constexpr DWORD kPatience = 30000;

}  // namespace

HeldContext::HeldContext(const std::string& endpoint) {
    const HANDLE opened = ::CreateEventW(nullptr, TRUE, FALSE, kOpened);
    wchar_t own[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, own, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(own) + L"\" " + kArgument + L" \"" +
                           std::wstring(endpoint.begin(), endpoint.end()) + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    const BOOL started =
        ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process_);
    const HANDLE either[] = {opened, process_.hProcess};
    const bool held = started && ::WaitForMultipleObjects(2, either, FALSE, kPatience) == WAIT_OBJECT_0;
    ::CloseHandle(opened);
    if (!held) {
        throw std::runtime_error("the client cannot open a context");
    }
}

HeldContext::~HeldContext() {
    ::TerminateProcess(process_.hProcess, 1);
    ::WaitForSingleObject(process_.hProcess, kPatience);
    ::CloseHandle(process_.hThread);
    ::CloseHandle(process_.hProcess);
}

int HeldContext::run_process(int argc, wchar_t** argv) {
    if (argc != 3 || std::wcscmp(argv[1], kArgument) != 0) {
        return -1;
    }
    const std::wstring endpoint = argv[2];
    const zorvalis_client::Client client({}, std::string(endpoint.begin(), endpoint.end()));
    ::SetEvent(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kOpened));
    ::Sleep(kPatience);
    return 1;
}
