// Open contexts of the local endpoint, numbered from 1, of which none comes twice: a client's late or repeated call
// finds nothing. A context is taken out once, and none ends under a call that uses it. On the stand-in machine each
// connection has a table and its contexts end with it; on Windows the process has one and the RPC runtime runs down
// what a dead client has left. Any thread.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace platform {

// Closed by whoever holds it last.
class OpenContext {
public:
    OpenContext(void* (*open)(), void (*close)(void* context)) : close_(close), context_(open()) {}
    ~OpenContext() {
        try {
            close_(context_);
        } catch (...) {
            // There may be no call any more that it could be a fault of.
        }
    }
    OpenContext(const OpenContext&) = delete;
    OpenContext& operator=(const OpenContext&) = delete;

    void* get() const { return context_; }

private:
    void (*close_)(void* context);
    void* context_;
};

class RpcContexts {
public:
    explicit RpcContexts(std::size_t most = std::numeric_limits<std::size_t>::max()) : most_(most) {}

    // Its number, 0 when there are too many.
    std::uint64_t add(std::shared_ptr<OpenContext> context) {
        const std::lock_guard guard(mutex_);
        if (contexts_.size() >= most_) {
            return 0;
        }
        contexts_.emplace(++last_, std::move(context));
        return last_;
    }

    // Null when there is none of that number.
    std::shared_ptr<OpenContext> find(std::uint64_t number) {
        const std::lock_guard guard(mutex_);
        const auto found = contexts_.find(number);
        return found != contexts_.end() ? found->second : nullptr;
    }

    // The same, and there is none of that number from now on.
    std::shared_ptr<OpenContext> take(std::uint64_t number) {
        const std::lock_guard guard(mutex_);
        auto node = contexts_.extract(number);
        return node ? std::move(node.mapped()) : nullptr;
    }

private:
    const std::size_t most_;
    std::mutex mutex_;
    std::map<std::uint64_t, std::shared_ptr<OpenContext>> contexts_;
    std::uint64_t last_ = 0;
};

}  // namespace platform
