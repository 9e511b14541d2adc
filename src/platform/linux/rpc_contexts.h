// The contexts that one connection has open, numbered from 1. They end with it, and none ends under a call that uses
// it. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "platform/rpc_procedures.h"

namespace platform {

// Closed by whoever holds it last.
class OpenContext {
public:
    OpenContext(const RpcProcedures& procedures, RpcContext context)
        : close_(procedures.RemoteClose), context_(context) {}
    ~OpenContext();
    OpenContext(const OpenContext&) = delete;
    OpenContext& operator=(const OpenContext&) = delete;

    RpcContext get() const { return context_; }

private:
    void (*close_)(RpcContext);
    RpcContext context_;
};

class RpcContexts {
public:
    static constexpr std::size_t kMost = 4096;

    // Its number, 0 when there are too many.
    std::uint64_t add(std::shared_ptr<OpenContext> context);

    // Null when there is none of that number.
    std::shared_ptr<OpenContext> find(std::uint64_t number);
    std::shared_ptr<OpenContext> take(std::uint64_t number);

private:
    std::mutex mutex_;
    std::map<std::uint64_t, std::shared_ptr<OpenContext>> contexts_;
    std::uint64_t last_ = 0;
};

}  // namespace platform
