#include "platform/rpc_callback.h"

#include "platform/rpc_observer.h"
#include "platform/windows/rpc_interface.h"
#include "rpc/guard.h"
#include "zorvalis_procedures.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

thread_local int served_calls = 0;

template <class Stub>
void send(Stub stub) {
    if (served_calls > 0) {
        zorvalis_rpc::Guarded(stub);
    }
}

}  // namespace

ServedCall::ServedCall() {
    ++served_calls;
}

ServedCall::~ServedCall() {
    --served_calls;
}

#define CALL_BACK(name, function_name, member, parameters, ...)                    \
    void function_name parameters {                                                \
        call_back(                                                                 \
            #name, [&] { send([&] { call_##name(__VA_ARGS__); }); }, __VA_ARGS__); \
    }
ZORVALIS_CALLBACKS(CALL_BACK)

}  // namespace platform
