#include "host.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <pwd.h>
#include <sys/ioctl.h>
#include <unistd.h>
#endif

#include "common/wide_to_utf8.h"

namespace zorvalis {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void Interrupt(int) {
    interrupted = 1;
}

}  // namespace

#if defined(_WIN32)

void PrepareOutput() {
    _setmode(_fileno(stdout), _O_BINARY);
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(console, &mode)) {
        static const UINT before = GetConsoleOutputCP();  // the console outlives the tool, and is others' too
        std::atexit([] { SetConsoleOutputCP(before); });
        SetConsoleOutputCP(CP_UTF8);
        SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
}

int TerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    const bool console = GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info);
    return console ? info.srWindow.Right - info.srWindow.Left + 1 : 0;
}

std::string UserName() {
    const wchar_t* const name = _wgetenv(L"USERNAME");
    return WideToUtf8(name == nullptr ? L"" : name);
}

void UseMachine(const char*) {}

#else

void PrepareOutput() {
    std::signal(SIGPIPE, SIG_IGN);
}

int TerminalWidth() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isatty(STDOUT_FILENO) == 0 ? 0 : known ? size.ws_col : 80;
}

std::string UserName() {
    const passwd* const user = getpwuid(geteuid());
    return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

void UseMachine(const char* folder) {
    setenv("ZORV_MACHINE", folder, 1);
}

#endif

void CatchInterruption() {
    std::signal(SIGINT, Interrupt);
    std::signal(SIGTERM, Interrupt);
#if defined(SIGHUP)
    std::signal(SIGHUP, Interrupt);
#endif
}

bool Interrupted() {
    return interrupted != 0;
}

}  // namespace zorvalis
