#include "platform/linux/rpc_security.h"

#include "platform/linux/step_failure.h"

namespace platform {
namespace {

constexpr unsigned kEveryone = 0666;

RpcStatus status_of(const char* step) {
    return static_cast<RpcStatus>(step_status(step));
}

}  // namespace

RpcSecurity::RpcSecurity() : state_(new State) {}

RpcSecurity::~RpcSecurity() {
    delete state_;
}

// There are no packaged applications here, and each name stands for one capability; in a test for more or fewer.
RpcStatus RpcSecurity::derive_capabilities(const wchar_t*, std::uint32_t& count) {
    const RpcStatus status = status_of("derive_capabilities");
    count = status == 0 ? static_cast<std::uint32_t>(1 + step_status("count_capabilities")) : 0;
    return status;
}

RpcStatus RpcSecurity::allocate_everyone() {
    return status_of("allocate_everyone");
}

RpcStatus RpcSecurity::build_access_list() {
    return status_of("build_access_list");
}

RpcStatus RpcSecurity::set_descriptor() {
    const RpcStatus status = status_of("set_descriptor");
    state_->mode = status == 0 ? kEveryone : state_->mode;
    return status;
}

}  // namespace platform
