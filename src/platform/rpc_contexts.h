// The open contexts of the local endpoint under the numbers that clients know them by. Numbers start at 1 and are never
// used again, so that a late or repeated call finds no context of another client. A call that has found a context keeps
// it open until it returns. On the stand-in machine each connection has a table, which ends with it; on Windows the
// process has one, and the RPC runtime closes what a dead client left open. Any thread.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace platform {

// Closes the context when its last holder lets go of it.
class OpenContext {
public:
    OpenContext(void* (*open)(), void (*close)(void* context)) : close_(close), context_(open()) {}
    ~OpenContext() {
        try {
            close_(context_);
        } catch (...) {
            // Swallowed: there may be no call left that could end with this fault.
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
    // `most` is how many may be open at once.
    explicit RpcContexts(std::size_t most = std::numeric_limits<std::size_t>::max()) : most_(most) {}

    // The context's number; 0, and the context is not kept, when too many are open.
    std::uint64_t add(std::shared_ptr<OpenContext> context) {
        const std::lock_guard guard(mutex_);
        if (contexts_.size() >= most_) {
            return 0;
        }
        contexts_.emplace(++last_, std::move(context));
        return last_;
    }

    // Null for an unknown number.
    std::shared_ptr<OpenContext> find(std::uint64_t number) {
        const std::lock_guard guard(mutex_);
        const auto found = contexts_.find(number);
        return found != contexts_.end() ? found->second : nullptr;
    }

    // As `find`, and the number is unknown from now on.
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
