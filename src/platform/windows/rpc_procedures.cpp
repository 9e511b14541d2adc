// What the generated stubs call for a client: each procedure of the interface, passed on to the service's own.
#include "platform/rpc_procedures.h"

#include <windows.h>

#include <atomic>
#include <tuple>
#include <type_traits>

#include "platform/rpc_contexts.h"
#include "platform/windows/rpc_interface.h"
#include "rpc/memory.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

constexpr std::int32_t kLargestOutput = 0x100000;  // characters; a client could have any amount of memory taken

std::atomic<const RpcProcedures*> registered = nullptr;

// What the runtime says of a context that it does not know (6), and not the null one's 1775: the client holds a
// context, but it is closed already. The runtime itself lets two calls of one client have the same context at once,
// also two that close it.
constexpr RPC_STATUS kClosedContext = RPC_X_SS_CONTEXT_MISMATCH;

RpcContexts& contexts() {
    static auto* const open = new RpcContexts;  // never destroyed: the runtime's threads run while the process ends
    return *open;
}

// Of the client's side of a context: a number, so that nobody's address is ever looked at.
std::uint64_t number_of(ClientContext context) {
    return reinterpret_cast<std::uintptr_t>(context);
}

// The status of an error, which ends here: neither C nor the runtime knows what to do with it.
template <class Procedure>
RPC_STATUS status_of(Procedure procedure) {
    const ServedCall call;
    try {
        return procedure();
    } catch (...) {
        return RPC_S_CALL_FAILED;
    }
}

// Raised from frames that hold nothing, since the runtime's exceptions run no destructors.
template <class Procedure>
void serve(Procedure procedure) {
    if (const RPC_STATUS status = status_of(procedure); status != RPC_S_OK) {
        ::RpcRaiseException(status);
    }
}

// The runtime refuses a null already, but not everywhere.
void refuse_null(ClientContext context) {
    if (context == nullptr) {
        ::RpcRaiseException(RPC_X_SS_IN_NULL_CONTEXT);
    }
}

// It ends here, or with the last call that uses it.
RPC_STATUS close(ClientContext context) {
    return contexts().take(number_of(context)) != nullptr ? RPC_S_OK : kClosedContext;
}

// The runtime has made room for the output, and does not fill it, or fills it with zeros.
void prepare(wchar_t* output, std::int32_t outputSize) {
    if (outputSize <= 0 || outputSize > kLargestOutput) {
        ::RpcRaiseException(RPC_S_INVALID_BOUND);
    }
    zorvalis_rpc::ClearBlock(output, static_cast<std::size_t>(outputSize) * sizeof *output);
}

void prepare_outputs() {}

template <class First, class... Rest>
void prepare_outputs(First first, Rest... rest) {
    if constexpr (std::is_same_v<First, wchar_t*>) {
        prepare(first, std::get<0>(std::tuple(rest...)));
    } else if constexpr (std::is_same_v<First, std::int32_t*>) {
        *first = 0;
    }
    prepare_outputs(rest...);
}

template <auto Procedure, class... Arguments>
void serve(ClientContext context, Arguments... arguments) {
    prepare_outputs(arguments...);
    refuse_null(context);
    serve([=] {
        const auto open = contexts().find(number_of(context));
        if (open == nullptr) {
            return kClosedContext;
        }
        (registered.load()->*Procedure)(open->get(), arguments...);
        return RPC_STATUS{RPC_S_OK};
    });
}

}  // namespace

void set_rpc_procedures(const RpcProcedures& procedures) {
    registered = &procedures;
}

}  // namespace platform

using platform::RpcProcedures;

extern "C" {

void serve_RemoteOpen(handle_t, ClientContext* context) {
    *context = nullptr;
    platform::serve([context] {
        const RpcProcedures& own = *platform::registered.load();
        const auto opened = std::make_shared<platform::OpenContext>(own.RemoteOpen, own.RemoteClose);
        *context = reinterpret_cast<ClientContext>(static_cast<std::uintptr_t>(platform::contexts().add(opened)));
        return RPC_STATUS{RPC_S_OK};
    });
}

void serve_RemoteClose(ClientContext* context) {
    platform::refuse_null(*context);
    platform::serve([context] { return platform::close(*context); });
    *context = nullptr;
}

void __RPC_USER ClientContextRundown(ClientContext context) {
    if (context != nullptr) {
        platform::status_of([context] { return platform::close(context); });
    }
}

#define SERVE(name, parameters, arguments, ...)          \
    void serve_##name parameters {                       \
        platform::serve<&RpcProcedures::name> arguments; \
    }
ZORVALIS_PROCEDURES(SERVE)
}
