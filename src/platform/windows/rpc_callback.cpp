#include "platform/rpc_callback.h"

#include <utility>

#include "platform/rpc_observer.h"
#include "platform/windows/rpc_interface.h"
#include "rpc/guard.h"
#include "zorvalis_procedures.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

thread_local bool arrives_by_ndr64 = false;
thread_local const ServedCall* served = nullptr;

template <class Stub>
void send(Stub stub) {
    if (served != nullptr) {
        zorvalis_rpc::Guarded(stub);
    }
}

}  // namespace

void call_arrives(bool by_ndr64) {
    arrives_by_ndr64 = by_ndr64;
}

ServedCall::ServedCall() : outer_(std::exchange(served, this)), by_ndr64_(arrives_by_ndr64) {}

ServedCall::~ServedCall() {
    served = outer_;
}

bool ServedCall::is_by_ndr64() {
    return served->by_ndr64_;
}

#define CALL_BACK(name, function_name, member, parameters, ...)                    \
    void function_name parameters {                                                \
        call_back(                                                                 \
            #name, [&] { send([&] { call_##name(__VA_ARGS__); }); }, __VA_ARGS__); \
    }
ZORVALIS_CALLBACKS(CALL_BACK)

}  // namespace platform
