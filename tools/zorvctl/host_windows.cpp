// The Windows side of host.h, and the tool's main.
#include "host.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "common/wide_to_utf8.h"
#include "platform/entry.h"

namespace zorvalis {

namespace {

// UTF-8, bare line ends, and escape sequences where the output is a console.
void PrepareOutput() {
    _setmode(_fileno(stdout), _O_BINARY);
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(console, &mode)) {
        static const UINT before = GetConsoleOutputCP();  // restored at the end: the shell uses the console on
        std::atexit([] { SetConsoleOutputCP(before); });
        SetConsoleOutputCP(CP_UTF8);
        SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
}

}  // namespace

int TerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    const bool console = GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info);
    return console ? info.srWindow.Right - info.srWindow.Left + 1 : 0;
}

std::string UserName() {
    const wchar_t* const name = _wgetenv(L"USERNAME");
    return WideToUtf8(name == nullptr ? L"" : name);
}

// The rest serves stand-in machines, which Windows lacks: commands that need one fail before they come here.
void UseMachine(const char*) {}

void CatchInterruption() {}

bool Interrupted() {
    return false;
}

}  // namespace zorvalis

int wmain(int argc, wchar_t** argv) {
    platform::distrust_users();
    zorvalis::PrepareOutput();
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.push_back(zorvalis::WideToUtf8(argv[i]));
    }
    return zorvalis::RunTool(std::move(arguments));
}
