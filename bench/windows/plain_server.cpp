// plain-rpc-server ENDPOINT: what windows-rpc-bench compares the service with. The service's interface by the same
// stubs and runtime; it answers each call with a constant, and has no contexts, no locks, no hardware and no log.
#include <windows.h>

#include <rpc.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <string>

#include "zorvalis_procedures.h"
#include "zorvalis_rpc.h"

namespace {

constexpr wchar_t kAnswer[] = LR"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})";

void Answer() {}

template <class First, class... Rest>
void Answer(First first, Rest... rest) {
    if constexpr (std::is_same_v<First, wchar_t*>) {
        std::wcscpy(first, kAnswer);  // the bench's clients have room for it
    } else if constexpr (std::is_same_v<First, std::int32_t*>) {
        *first = 1;
    }
    Answer(rest...);
}

template <class... Arguments>
void Serve(ClientContext, Arguments... arguments) {
    Answer(arguments...);
}

}  // namespace

extern "C" {

void serve_RemoteOpen(handle_t, ClientContext* context) {
    *context = context;
}

void serve_RemoteClose(ClientContext* context) {
    *context = nullptr;
}

void __RPC_USER ClientContextRundown(ClientContext) {}

void __RPC_STUB zorv_serve_by_ndr(RPC_MESSAGE* message) {
    ::NdrServerCall2(message);
}

void __RPC_STUB zorv_serve_by_ndr64(RPC_MESSAGE* message) {
    ::NdrServerCallAll(message);
}

int zorv_serves_by_ndr64() {
    return 0;  // it makes no callback
}

#define SERVE(name, parameters, arguments, ...) \
    void serve_##name parameters {              \
        Serve arguments;                        \
    }
ZORVALIS_PROCEDURES(SERVE)
}

int main(int argc, char** argv) {
    std::string protocol = "ncalrpc", endpoint = argc > 1 ? argv[1] : "";
    const auto text = [](std::string& words) { return reinterpret_cast<RPC_CSTR>(words.data()); };
    return ::RpcServerUseProtseqEpA(text(protocol), 10, text(endpoint), nullptr) == RPC_S_OK &&
                   ::RpcServerRegisterIfEx(serve_Zorvalis_v1_0_s_ifspec, nullptr, nullptr, RPC_IF_AUTOLISTEN, 1234,
                                           nullptr) == RPC_S_OK &&
                   ::RpcServerListen(1, 1234, FALSE) == RPC_S_OK
               ? EXIT_SUCCESS
               : EXIT_FAILURE;
}
