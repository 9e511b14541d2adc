// The procedures of the local endpoint, in the order of their numbers. The service fills the table; the floor calls
// them with what a client sent, on threads of the transport, many at once, also on one context. An exception that
// leaves one ends that call with a fault at the client and has no other effect.
#pragma once

#include <cstdint>

namespace platform {

// What the service's RemoteOpen returns, never null. The floor passes it to each call of that context and to
// RemoteClose once, after the last call that uses it. Clients see a number instead.
using RpcContext = void*;

// Texts end with a null. `output` is a zeroed buffer of `outputSize` characters, the terminator included. `cookie` is
// a number of the client's own, which its callbacks bring back.
struct RpcProcedures {
    RpcContext (*RemoteOpen)();
    void (*RemoteClose)(RpcContext context);  // also for a client that died
    void (*GetTestDataFunc)(RpcContext context, std::int64_t value, std::int64_t cookie);
    void (*GetModelName)(RpcContext context, std::int64_t cookie);
    void (*GetSerialNumber)(RpcContext context, std::int64_t cookie);
    void (*GetFamilyName)(RpcContext context, std::int64_t cookie);
    void (*GetChassisTypes)(RpcContext context, std::int64_t cookie);
    void (*GetProductName)(RpcContext context, std::int64_t cookie);
    void (*GetBatteryHealthMode)(RpcContext context, std::int64_t cookie);
    void (*GetQuietFanMode)(RpcContext context, std::int64_t cookie);
    void (*GetSystemInfoData)(RpcContext context, std::int64_t cookie);
    void (*GetVersionString)(RpcContext context, std::int64_t cookie);
    // Each of the four texts may be null.
    void (*SetMyZorvPP)(RpcContext context, const wchar_t* windowsAccount, const wchar_t* appName,
                        const wchar_t* appVersion, const wchar_t* timeText, std::uint8_t isAgreePP,
                        std::int32_t* result, std::int64_t cookie);
    void (*GetUUID)(RpcContext context, wchar_t* output, std::int32_t outputSize, std::int64_t cookie);
    void (*SetBatteryHealth)(RpcContext context, std::int64_t value, std::int64_t cookie);
    void (*SetQuietFan)(RpcContext context, std::uint8_t on, std::int64_t cookie);
    void (*SetAppFolder)(RpcContext context, const wchar_t* path, std::int64_t cookie);
    void (*SetMainSwitchByUser)(RpcContext context, std::uint8_t on, std::int64_t cookie);
    void (*GetMainSwitchByUser)(RpcContext context, std::int64_t cookie);
    void (*BigDataServiceCall)(RpcContext context, const wchar_t* input, wchar_t* output, std::int32_t outputSize,
                               std::int64_t cookie);
};

}  // namespace platform
