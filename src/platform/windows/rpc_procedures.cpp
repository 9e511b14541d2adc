// What the generated stubs call for a client: each procedure of the interface, passed on to the service's own.
#include "platform/rpc_procedures.h"

#include <windows.h>

#include <atomic>

#include "platform/rpc_contexts.h"
#include "platform/windows/rpc_call.h"
#include "platform/windows/rpc_interface.h"
#include "platform/windows/rpc_memory.h"
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

template <auto Procedure, class... Arguments>
void serve(ClientContext context, Arguments... arguments) {
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

// It ends here, or with the last call that uses it.
RPC_STATUS close(ClientContext context) {
    return contexts().take(number_of(context)) != nullptr ? RPC_S_OK : kClosedContext;
}

// The runtime has made room for the output, and does not fill it, or fills it with zeros.
void prepare_output(wchar_t* output, LONG outputSize) {
    if (outputSize <= 0 || outputSize > kLargestOutput) {
        ::RpcRaiseException(RPC_S_INVALID_BOUND);
    }
    clear_rpc_block(output, static_cast<std::size_t>(outputSize) * sizeof *output);
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

#define SERVE_WITH_COOKIE(procedure)                                 \
    void serve_##procedure(ClientContext context, hyper cookie) {    \
        platform::serve<&RpcProcedures::procedure>(context, cookie); \
    }
SERVE_WITH_COOKIE(GetModelName)
SERVE_WITH_COOKIE(GetSerialNumber)
SERVE_WITH_COOKIE(GetFamilyName)
SERVE_WITH_COOKIE(GetChassisTypes)
SERVE_WITH_COOKIE(GetProductName)
SERVE_WITH_COOKIE(GetBatteryHealthMode)
SERVE_WITH_COOKIE(GetQuietFanMode)
SERVE_WITH_COOKIE(GetSystemInfoData)
SERVE_WITH_COOKIE(GetVersionString)
SERVE_WITH_COOKIE(GetMainSwitchByUser)

void serve_GetTestDataFunc(ClientContext context, hyper value, hyper cookie) {
    platform::serve<&RpcProcedures::GetTestDataFunc>(context, value, cookie);
}

void serve_SetMyZorvPP(ClientContext context, const wchar_t* windowsAccount, const wchar_t* appName,
                       const wchar_t* appVersion, const wchar_t* timeText, unsigned char isAgreePP, LONG* result,
                       hyper cookie) {
    std::int32_t value = 0;
    *result = 0;
    platform::serve<&RpcProcedures::SetMyZorvPP>(context, windowsAccount, appName, appVersion, timeText, isAgreePP,
                                                 &value, cookie);
    *result = value;
}

void serve_GetUUID(ClientContext context, wchar_t* output, LONG outputSize, hyper cookie) {
    platform::prepare_output(output, outputSize);
    platform::serve<&RpcProcedures::GetUUID>(context, output, outputSize, cookie);
}

void serve_SetBatteryHealth(ClientContext context, hyper value, hyper cookie) {
    platform::serve<&RpcProcedures::SetBatteryHealth>(context, value, cookie);
}

void serve_SetQuietFan(ClientContext context, unsigned char on, hyper cookie) {
    platform::serve<&RpcProcedures::SetQuietFan>(context, on, cookie);
}

void serve_SetAppFolder(ClientContext context, const wchar_t* path, hyper cookie) {
    platform::serve<&RpcProcedures::SetAppFolder>(context, path, cookie);
}

void serve_SetMainSwitchByUser(ClientContext context, unsigned char on, hyper cookie) {
    platform::serve<&RpcProcedures::SetMainSwitchByUser>(context, on, cookie);
}

void serve_BigDataServiceCall(ClientContext context, const wchar_t* input, wchar_t* output, LONG outputSize,
                              hyper cookie) {
    platform::prepare_output(output, outputSize);
    platform::serve<&RpcProcedures::BigDataServiceCall>(context, input, output, outputSize, cookie);
}
}
