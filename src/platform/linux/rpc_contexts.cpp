#include "platform/linux/rpc_contexts.h"

#include <utility>

namespace platform {

OpenContext::~OpenContext() {
    try {
        close_(context_);
    } catch (...) {
        // There may be no call any more that it could be a fault of.
    }
}

std::uint64_t RpcContexts::add(std::shared_ptr<OpenContext> context) {
    const std::lock_guard guard(mutex_);
    if (contexts_.size() >= kMost) {
        return 0;
    }
    contexts_.emplace(++last_, std::move(context));
    return last_;
}

std::shared_ptr<OpenContext> RpcContexts::find(std::uint64_t number) {
    const std::lock_guard guard(mutex_);
    const auto found = contexts_.find(number);
    return found != contexts_.end() ? found->second : nullptr;
}

std::shared_ptr<OpenContext> RpcContexts::take(std::uint64_t number) {
    const std::lock_guard guard(mutex_);
    auto node = contexts_.extract(number);
    return node ? std::move(node.mapped()) : nullptr;
}

}  // namespace platform
