// Stands in for the service in tests of what installs it. A file `stubborn` beside it keeps it from stopping, and one
// that is there at its start keeps it from being asked; a file `end` ends it without the service manager. With an
// argument it is a pass, which runs until its standard input ends, and holds the file that a second one names.
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>

namespace {

std::atomic<bool> stopped = false;
SERVICE_STATUS_HANDLE handle;

bool HasFile(const wchar_t* name) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring self = path;
    return GetFileAttributesW((self.substr(0, self.rfind(L'\\') + 1) + name).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void Report(DWORD state) {
    static const DWORD accepted = HasFile(L"stubborn") ? 0 : SERVICE_ACCEPT_STOP;
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, accepted, 0, 0, 0, 0};
    SetServiceStatus(handle, &status);
}

DWORD WINAPI Handle(DWORD control, DWORD, void*, void*) {
    stopped = stopped || (control == SERVICE_CONTROL_STOP && !HasFile(L"stubborn"));
    return NO_ERROR;
}

void WINAPI Main(DWORD, wchar_t**) {
    handle = RegisterServiceCtrlHandlerExW(L"Zorvalis", Handle, nullptr);
    Report(SERVICE_RUNNING);
    while (!stopped && !HasFile(L"end")) {
        Sleep(20);
    }
    Report(SERVICE_STOPPED);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc > 1) {
        if (argc > 2 &&
            CreateFileW(argv[2], GENERIC_READ, 0, nullptr, OPEN_ALWAYS, 0, nullptr) == INVALID_HANDLE_VALUE) {
            return 1;
        }
        std::puts("runs");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        return 0;
    }
    wchar_t name[] = L"Zorvalis";
    const SERVICE_TABLE_ENTRYW services[] = {{name, Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(services) ? 0 : 1;
}
