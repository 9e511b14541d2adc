#include "platform/linux/rpc_frame.h"

#include <new>
#include <utility>

#include "platform/linux/wide.h"
#include "platform/text.h"

namespace platform {
namespace {

using zorvalis::Json;

Json parse(const std::string& line) {
    try {
        return zorvalis::ParseJson(line);
    } catch (const std::invalid_argument& error) {
        throw RpcError{kRpcParseError, std::string("Parse error: ") + error.what()};
    }
}

}  // namespace

RpcRequest parse_rpc_request(const std::string& line) {
    Json message = parse(line);
    if (!message.is_object()) {
        throw RpcError{kRpcInvalidRequest, "Invalid Request: a message is one object"};
    }
    RpcRequest request;
    if (const auto id = message.find("id"); id != message.end()) {
        if (!id->is_string() && !id->is_number() && !id->is_null()) {
            throw RpcError{kRpcInvalidRequest, "Invalid Request: an id is a text, a number or null"};
        }
        request.id = *id;
    }
    const auto version = message.find("jsonrpc"), method = message.find("method");
    if (version == message.end() || *version != "2.0" || method == message.end() || !method->is_string()) {
        throw RpcError{kRpcInvalidRequest, "Invalid Request: jsonrpc is \"2.0\" and method a text",
                       request.id.value_or(Json())};
    }
    request.method = method->get<std::string>();
    const auto params = message.find("params");
    request.params = params != message.end() ? std::move(*params) : Json::object();
    if (!request.params.is_object()) {
        throw RpcError{kRpcInvalidParams, "Invalid params: they are an object of names", request.id};
    }
    return request;
}

std::string rpc_result_line(const Json& id, const Json& result) {
    return R"({"id":)" + zorvalis::DumpJson(id) + R"(,"jsonrpc":"2.0","result":)" + zorvalis::DumpJson(result) + "}";
}

std::string rpc_error_line(const Json& id, int code, const std::string& message) {
    // Words of a library may be in any code page.
    const std::string text = to_wide(message) ? message : ansi_to_utf8(message.c_str());
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":)" + zorvalis::DumpJson(text) + R"(},"id":)" +
           zorvalis::DumpJson(id) + R"(,"jsonrpc":"2.0"})";
}

std::string rpc_notification_line(const char* method, const Json& params) {
    return R"({"jsonrpc":"2.0","method":")" + std::string(method) + R"(","params":)" + zorvalis::DumpJson(params) + "}";
}

std::string ansi_to_utf8(const char* text) {
    const int length = multi_byte_to_wide(kCodePageAnsi, text, -1, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    multi_byte_to_wide(kCodePageAnsi, text, -1, wide.data(), length);
    return to_utf8(wide.c_str());
}

}  // namespace platform
