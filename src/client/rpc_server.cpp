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

constexpr wchar_t kPackage[] = L"Zorv.Zorvinfo_k7rt2xw94hmpa";
constexpr wchar_t kProtocol[] = L"ncalrpc";
constexpr wchar_t kEndpoint[] = L"ZorvHelpRpcEndpoint";
constexpr std::uint32_t kMostCallsOfEndpoint = 10;
constexpr std::uint32_t kMostCalls = 1234;
constexpr std::uint32_t kAutoListenAndLocalOnly = 33;
constexpr std::uint32_t kInvalidParameter = 87;
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

// Everyone, and packaged applications with the capability; the endpoint and the interface are protected alike.
std::uint32_t SetUpSecurity(platform::RpcSecurity& security) {
    std::uint32_t capabilities = 0;
    std::uint32_t status = security.derive_capabilities(kPackage, capabilities);
    if (status == 0 && capabilities != 1) {
        status = kInvalidParameter;
    }
    if (status == 0) {
        status = security.allocate_everyone();
    }
    if (status == 0) {
        status = security.build_access_list();
    }
    return status == 0 ? security.set_descriptor() : status;
}

}  // namespace

std::uint32_t RpcServerStart() {
    LogMessage("[RpcServer] RpcServerStart");
    stopping = false;
    platform::RpcSecurity security;
    std::uint32_t status = SetUpSecurity(security);
    if (status == 0) {
        status = platform::use_rpc_endpoint(kProtocol, kMostCallsOfEndpoint, kEndpoint, security);
    }
    if (status == 0) {
        status = platform::register_rpc_interface(kProcedures, kAutoListenAndLocalOnly, kMostCalls, security);
    }
    if (status == 0) {
        status = platform::inquire_rpc_bindings();
    }
    if (status == 0) {
        status = platform::map_rpc_endpoint();
    }
    if (status == 0) {
        status = platform::listen_for_rpc(1, kMostCalls);
        status = status == kAlreadyListening ? 0 : status;
    }
    return status;
}

void RpcServerStop() {
    stopping = true;
    platform::unregister_rpc_interface();
    platform::unmap_rpc_endpoint();
    platform::free_rpc_bindings();
}

}  // namespace zorvalis
