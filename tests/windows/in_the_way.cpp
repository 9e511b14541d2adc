// What gets in an installer's way: as a service one that takes no stop and runs until C:\let-go exists; given a file, a
// program that shares the file with nobody until its input ends.
#include <windows.h>

#include <cstdio>

namespace {

wchar_t name[] = L"";

void WINAPI Ignore(DWORD) {}

void WINAPI Run(DWORD, wchar_t**) {
    const SERVICE_STATUS_HANDLE service = RegisterServiceCtrlHandlerW(name, Ignore);
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0, 0, 0, 0, 0};
    SetServiceStatus(service, &status);
    while (GetFileAttributesW(L"C:\\let-go") == INVALID_FILE_ATTRIBUTES) {
        Sleep(20);
    }
    status.dwCurrentState = SERVICE_STOPPED;
    SetServiceStatus(service, &status);
}

}  // namespace

extern "C" int wmain(int count, wchar_t** words) {
    if (count == 2) {
        std::puts(CreateFileW(words[1], GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr) != INVALID_HANDLE_VALUE
                      ? "held"
                      : "lost");
        std::fflush(stdout);
        return std::getchar() != EOF;
    }
    const SERVICE_TABLE_ENTRYW table[] = {{name, Run}, {nullptr, nullptr}};
    return !StartServiceCtrlDispatcherW(table);
}
