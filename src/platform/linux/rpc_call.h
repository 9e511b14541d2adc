// One line of a connection: finds the procedure that it names, gives it its arguments, and answers. Any thread.
#pragma once

#include <functional>
#include <string>

#include "platform/rpc_contexts.h"
#include "platform/rpc_procedures.h"

namespace platform {

// Takes the lines of callbacks, while the call runs. Lets nothing out.
using RpcSend = std::function<void(std::string line)>;

// The answer, empty for none. Lets nothing out but std::bad_alloc.
std::string make_rpc_call(const RpcProcedures& procedures, RpcContexts& contexts, const std::string& line,
                          const RpcSend& send);

// The callbacks of the calling thread go there for as long as the object lives.
class RpcCallbackScope {
public:
    explicit RpcCallbackScope(const RpcSend& send);
    ~RpcCallbackScope();
    RpcCallbackScope(const RpcCallbackScope&) = delete;
    RpcCallbackScope& operator=(const RpcCallbackScope&) = delete;
};

}  // namespace platform
