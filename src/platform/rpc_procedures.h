// The procedures of the local endpoint, in the order of their numbers, as the service hands them to the floor, which
// calls them with what a client sent. They run on threads of the transport, many at once, also on one context. An
// error that leaves one ends the call as a fault at the client, and nothing else.
#pragma once

#include <cstdint>

namespace platform {

// What RemoteOpen hands out: the floor passes it on as it is, never null, and gives it back once, when no call uses it
// any more. Clients get a number in its place.
using RpcContext = void*;

// Text is terminated. A text buffer has room for `outputSize` characters and comes zeroed; a cookie is the client's
// own.
struct RpcProcedures {
    RpcContext (*RemoteOpen)();
    void (*RemoteClose)(RpcContext context);  // also of a client that died
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
