#include "client/rpc_server.h"

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "client/system_info.h"
#include "common/log.h"
#include "platform/rpc_endpoint.h"
#include "zorvalis_procedures.h"

namespace zorvalis {
namespace {

constexpr platform::RpcEndpointSettings kEndpoint = {L"ZorvHelpRpcEndpoint", L"Zorv.Zorvinfo_k7rt2xw94hmpa", 10, 1234};
constexpr std::uint32_t kAlreadyListening = 1713;

std::atomic<bool> stopping{false};  // nobody asks: a start that has begun goes on to its end

struct ContextHolder {
    std::unique_ptr<SystemInfoClass> instance;  // null when it could not be made
};

platform::RpcContext RemoteOpen() {
    LogMessage("[RpcServer] RemoteOpen");
    auto holder = std::make_unique<ContextHolder>();
    holder->instance.reset(new (std::nothrow) SystemInfoClass);
    return holder.release();
}

void RemoteClose(platform::RpcContext context) {
    delete static_cast<ContextHolder*>(context);
}

SystemInfoClass& InstanceOf(platform::RpcContext context) {
    SystemInfoClass* const instance = static_cast<ContextHolder*>(context)->instance.get();
    if (instance == nullptr) {
        throw std::bad_alloc();
    }
    return *instance;
}

template <auto method, class... Arguments>
void Forward(platform::RpcContext context, Arguments... arguments) {
    (InstanceOf(context).*method)(arguments...);
}

template <>
void Forward<&SystemInfoClass::GetTestDataFunc>(platform::RpcContext context, std::int64_t value, std::int64_t cookie) {
    LogMessage("[RpcServer] GetTestDataFunc");
    LogMessage("getData : " + std::to_string(value));
    InstanceOf(context).GetTestDataFunc(value, cookie);
}

constexpr platform::RpcProcedures kProcedures = {RemoteOpen, RemoteClose,
#define FORWARD(name, ...) Forward<&SystemInfoClass::name>,
                                                 ZORVALIS_PROCEDURES(FORWARD)
#undef FORWARD
};

}  // namespace

std::uint32_t RpcServerStart() {
    LogMessage("[RpcServer] RpcServerStart");
    stopping = false;
    const platform::RpcEndpoint endpoint(kEndpoint, kProcedures);
    if (endpoint.status() != 0) {
        return endpoint.status();
    }
    const std::uint32_t status = platform::listen_for_rpc(1, kEndpoint.most_calls);
    return status == kAlreadyListening ? 0 : status;
}

void RpcServerStop() {
    stopping = true;
    platform::stop_rpc_endpoint();
}

}  // namespace zorvalis
