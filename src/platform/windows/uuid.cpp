// By the UUID functions of the RPC runtime.
#include "platform/uuid.h"

#include <windows.h>

#include <rpc.h>

#include <cstring>

namespace platform {

Uuid create_uuid() {
    UUID made = {};
    ::UuidCreate(&made);
    Uuid uuid;
    std::memcpy(uuid.data(), &made, sizeof made);
    return uuid;
}

std::wstring uuid_to_text(const Uuid& uuid) {
    UUID fields;
    std::memcpy(&fields, uuid.data(), sizeof fields);
    RPC_WSTR text = nullptr;
    if (::UuidToStringW(&fields, &text) != RPC_S_OK) {
        return {};
    }
    std::wstring result(reinterpret_cast<const wchar_t*>(text));
    ::RpcStringFreeW(&text);
    return result;
}

}  // namespace platform
