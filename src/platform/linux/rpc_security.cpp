#include "platform/linux/rpc_security.h"

#include "platform/linux/step_failure.h"

namespace platform {
namespace {

constexpr RpcStatus kInvalidParameter = 87;
constexpr unsigned kEveryone = 0666;

// A step's own answer, or that it came before what it needs.
RpcStatus status_of(const char* step, bool ready) {
    const auto failure = static_cast<RpcStatus>(step_status(step));
    return failure != 0 || ready ? failure : kInvalidParameter;
}

}  // namespace

RpcSecurity::RpcSecurity() : state_(new State) {}

RpcSecurity::~RpcSecurity() {
    delete state_;
}

// There are no packaged applications here, and each name stands for one capability; in a test for more or fewer.
RpcStatus RpcSecurity::derive_capabilities(const wchar_t* name, std::uint32_t& count) {
    const RpcStatus status = status_of("derive_capabilities", name != nullptr && *name != L'\0');
    count = status == 0 ? static_cast<std::uint32_t>(1 + step_status("count_capabilities")) : 0;
    state_->derived = status == 0;
    return status;
}

RpcStatus RpcSecurity::allocate_everyone() {
    const RpcStatus status = status_of("allocate_everyone", true);
    state_->everyone = status == 0;
    return status;
}

RpcStatus RpcSecurity::build_access_list() {
    const RpcStatus status = status_of("build_access_list", state_->derived && state_->everyone);
    state_->listed = status == 0;
    return status;
}

RpcStatus RpcSecurity::set_descriptor() {
    const RpcStatus status = status_of("set_descriptor", state_->listed);
    state_->mode = status == 0 ? kEveryone : state_->mode;
    return status;
}

}  // namespace platform
