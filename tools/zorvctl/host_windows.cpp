// The Windows side of host.h, and the tool's main.
#include "host.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <rpc.h>

#include <cstdio>
#include <cstdlib>

#include "common/code_page.h"
#include "common/wide_to_utf8.h"
#include "platform/entry.h"
#include "platform/service_manager.h"

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

// Whether the process runs with an administrator's full rights.
bool HasAllRights() {
    HANDLE token = nullptr;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    const bool known = OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) != FALSE &&
                       GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size) != FALSE;
    CloseHandle(token);
    return known && elevation.TokenIsElevated != 0;
}

// The service and its passes are LocalSystem: what is refused to somebody else tells nothing of them.
std::string HiddenPart() {
    return "";
}

std::optional<bool> MayWriteIn(const std::string& folder) {
    const HANDLE opened =
        CreateFileW(Utf82Unicode(folder).c_str(), FILE_ADD_FILE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        return HasAllRights() ? std::optional(false) : std::nullopt;
    }
    CloseHandle(opened);
    return true;
}

bool EndpointListens() {
    RPC_WSTR text = nullptr;
    RPC_BINDING_HANDLE binding = nullptr;
    wchar_t protocol[] = L"ncalrpc", endpoint[] = L"ZorvHelpRpcEndpoint";
    const auto wide = [](wchar_t* each) { return reinterpret_cast<RPC_WSTR>(each); };
    const bool listens =
        RpcStringBindingComposeW(nullptr, wide(protocol), nullptr, wide(endpoint), nullptr, &text) == RPC_S_OK &&
        RpcBindingFromStringBindingW(text, &binding) == RPC_S_OK && RpcMgmtIsServerListening(binding) == RPC_S_OK;
    RpcBindingFree(&binding);
    RpcStringFreeW(&text);
    return listens;
}

// By the task scheduler's service. When that may not be asked, it is taken to run, as it always does.
bool TasksAreStarted() {
    constexpr DWORD kConnect = 1, kQuery = 4;
    platform::ServiceManager manager;
    platform::ServiceStatus status{};
    return !manager.open(kConnect) || !manager.open_service(L"Schedule", kQuery) || !manager.query_service(status) ||
           status.state == SERVICE_RUNNING;
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
