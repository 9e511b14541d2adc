// What the generated stubs call for a client: each procedure of the interface, passed on to the service's own.
#include "platform/rpc_procedures.h"

#include <windows.h>

#include <algorithm>
#include <atomic>

#include "platform/windows/rpc_call.h"
#include "platform/windows/rpc_interface.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

constexpr std::int32_t kLargestOutput = 0x100000;  // characters; a client could have any amount of memory taken

std::atomic<const RpcProcedures*> registered = nullptr;

// False for an error, which ends here: neither C nor the runtime knows what to do with it.
template <class Procedure>
bool completes(Procedure procedure) {
    const ServedCall call;
    try {
        procedure();
        return true;
    } catch (...) {
        return false;
    }
}

// Raised from frames that hold nothing, since the runtime's exceptions run no destructors.
template <class Procedure>
void serve(Procedure procedure) {
    if (!completes(procedure)) {
        ::RpcRaiseException(RPC_S_CALL_FAILED);
    }
}

// The runtime refuses a null already, but not everywhere.
template <auto Procedure, class... Arguments>
void serve(ClientContext context, Arguments... arguments) {
    if (context == nullptr) {
        ::RpcRaiseException(RPC_X_SS_IN_NULL_CONTEXT);
    }
    serve([=] { (registered.load()->*Procedure)(context, arguments...); });
}

// The runtime has made room for the output, and does not fill it.
void prepare_output(wchar_t* output, LONG outputSize) {
    if (outputSize <= 0 || outputSize > kLargestOutput) {
        ::RpcRaiseException(RPC_S_INVALID_BOUND);
    }
    std::fill_n(output, outputSize, L'\0');
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
    platform::serve([context] { *context = platform::registered.load()->RemoteOpen(); });
}

void serve_RemoteClose(ClientContext* context) {
    platform::serve<&RpcProcedures::RemoteClose>(*context);
    *context = nullptr;
}

void __RPC_USER ClientContextRundown(ClientContext context) {
    if (context != nullptr) {
        platform::completes([context] { platform::registered.load()->RemoteClose(context); });
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
