#include "platform/rpc_observer.h"

namespace platform {
namespace {

thread_local const RpcCallbackObserver* observer = nullptr;

}  // namespace

void set_callback_observer(const RpcCallbackObserver* taker) {
    observer = taker;
}

const RpcCallbackObserver* callback_observer() {
    return observer;
}

}  // namespace platform
