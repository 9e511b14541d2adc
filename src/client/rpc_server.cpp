#include "client/rpc_server.h"

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "client/system_info.h"
#include "common/log.h"
#include "platform/rpc_endpoint.h"

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

template <void (SystemInfoClass::*method)(std::int64_t)>
void Forward(platform::RpcContext context, std::int64_t cookie) {
    (InstanceOf(context).*method)(cookie);
}

void GetTestDataFunc(platform::RpcContext context, std::int64_t value, std::int64_t cookie) {
    LogMessage("[RpcServer] GetTestDataFunc");
    LogMessage("getData : " + std::to_string(value));
    InstanceOf(context).GetTestDataFunc(value, cookie);
}

void SetMyZorvPP(platform::RpcContext context, const wchar_t* windowsAccount, const wchar_t* appName,
                 const wchar_t* appVersion, const wchar_t* timeText, std::uint8_t isAgreePP, std::int32_t* result,
                 std::int64_t) {
    InstanceOf(context).SetMyZorvPP(windowsAccount, appName, appVersion, timeText, isAgreePP != 0, result);
}

void GetUUID(platform::RpcContext context, wchar_t* output, std::int32_t outputSize, std::int64_t) {
    InstanceOf(context).GetUUID(output, outputSize);
}

void SetBatteryHealth(platform::RpcContext context, std::int64_t value, std::int64_t cookie) {
    InstanceOf(context).SetBatteryHealth(value, cookie);
}

void SetQuietFan(platform::RpcContext context, std::uint8_t on, std::int64_t cookie) {
    InstanceOf(context).SetQuietFan(on != 0, cookie);
}

void SetAppFolder(platform::RpcContext context, const wchar_t* path, std::int64_t cookie) {
    InstanceOf(context).SetAppFolder(path, cookie);
}

void SetMainSwitchByUser(platform::RpcContext context, std::uint8_t on, std::int64_t cookie) {
    InstanceOf(context).SetMainSwitchByUser(on != 0, cookie);
}

void BigDataServiceCall(platform::RpcContext context, const wchar_t* input, wchar_t* output, std::int32_t outputSize,
                        std::int64_t) {
    InstanceOf(context).BigDataServiceCall(input, output, outputSize);
}

constexpr platform::RpcProcedures kProcedures = {
    RemoteOpen,
    RemoteClose,
    GetTestDataFunc,
    Forward<&SystemInfoClass::GetModelName>,
    Forward<&SystemInfoClass::GetSerialNumber>,
    Forward<&SystemInfoClass::GetFamilyName>,
    Forward<&SystemInfoClass::GetChassisTypes>,
    Forward<&SystemInfoClass::GetProductName>,
    Forward<&SystemInfoClass::GetBatteryHealthMode>,
    Forward<&SystemInfoClass::GetQuietFanMode>,
    Forward<&SystemInfoClass::GetSystemInfoData>,
    Forward<&SystemInfoClass::GetVersionString>,
    SetMyZorvPP,
    GetUUID,
    SetBatteryHealth,
    SetQuietFan,
    SetAppFolder,
    SetMainSwitchByUser,
    Forward<&SystemInfoClass::GetMainSwitchByUser>,
    BigDataServiceCall,
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
