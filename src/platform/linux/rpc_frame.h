// The lines of the local endpoint's socket: JSON-RPC 2.0, one message each. Pure functions of texts.
#pragma once

#include <optional>
#include <string>

#include "base/json.h"

namespace platform {

// Codes of errors.
constexpr int kRpcParseError = -32700;
constexpr int kRpcInvalidRequest = -32600;
constexpr int kRpcMethodNotFound = -32601;
constexpr int kRpcInvalidParams = -32602;
constexpr int kRpcFault = -32000;

constexpr std::size_t kLongestRpcLine = 4 << 20;

struct RpcRequest {
    std::string method;
    zorvalis::Json params;             // an object
    std::optional<zorvalis::Json> id;  // none for a notification, which is not answered
};

// A message that cannot be obeyed; `id` is null where it is not known.
struct RpcError {
    int code;
    std::string message;
    std::optional<zorvalis::Json> id = zorvalis::Json();
};

// Throws RpcError.
RpcRequest parse_rpc_request(const std::string& line);

std::string rpc_result_line(const zorvalis::Json& id, const zorvalis::Json& result);
std::string rpc_error_line(const zorvalis::Json& id, int code, const std::string& message);
std::string rpc_notification_line(const char* method, const zorvalis::Json& params);

// Bytes in the ANSI code page as UTF-8.
std::string ansi_to_utf8(const char* text);

}  // namespace platform
