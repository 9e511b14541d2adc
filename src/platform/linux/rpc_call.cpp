#include "platform/linux/rpc_call.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>

#include "base/json.h"
#include "platform/linux/rpc_frame.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

using zorvalis::Json;

constexpr std::int64_t kLargestOutput = 1 << 20;

struct BadArgument {
    std::string message;
};

class Arguments {
public:
    explicit Arguments(const Json& params) : params_(params) {}

    template <class Integer>
    Integer integer(const char* name, std::int64_t least = std::numeric_limits<Integer>::min(),
                    std::int64_t most = std::numeric_limits<Integer>::max()) const {
        const auto found = params_.find(name);
        const bool large = found != params_.end() && found->is_number_unsigned() && found->get<std::uint64_t>() > kMost;
        if (found == params_.end() || !found->is_number_integer() || large || found->get<std::int64_t>() < least ||
            found->get<std::int64_t>() > most) {
            throw BadArgument{name + std::string(" is an integer from ") + std::to_string(least) + " to " +
                              std::to_string(most)};
        }
        return static_cast<Integer>(found->get<std::int64_t>());
    }

    std::int64_t cookie() const { return integer<std::int64_t>("cookie"); }
    std::uint8_t flag() const { return integer<std::uint8_t>("flag"); }  // any but 0 is true

    // A missing one is null.
    std::optional<std::wstring> text(const char* name) const {
        const auto found = params_.find(name);
        if (found == params_.end() || found->is_null()) {
            return std::nullopt;
        }
        auto text = found->is_string() ? to_wide(found->get_ref<const std::string&>()) : std::nullopt;
        if (!text) {
            throw BadArgument{name + std::string(" is a text")};
        }
        return text;
    }

    std::wstring needed_text(const char* name) const {
        auto result = text(name);
        if (!result) {
            throw BadArgument{name + std::string(" is missing")};
        }
        return *std::move(result);
    }

private:
    static constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();

    const Json& params_;
};

const wchar_t* pointer(const std::optional<std::wstring>& text) {
    return text ? text->c_str() : nullptr;
}

using Call = Json (*)(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments);

template <auto Procedure>
Json with_cookie(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    (procedures.*Procedure)(context, arguments.cookie());
    return nullptr;
}

template <auto Procedure>
Json with_value(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const auto value = arguments.integer<std::int64_t>("value");
    (procedures.*Procedure)(context, value, arguments.cookie());
    return nullptr;
}

template <auto Procedure>
Json with_flag(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const std::uint8_t flag = arguments.flag();
    (procedures.*Procedure)(context, flag, arguments.cookie());
    return nullptr;
}

Json set_app_folder(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const std::wstring path = arguments.needed_text("path");
    procedures.SetAppFolder(context, path.c_str(), arguments.cookie());
    return nullptr;
}

Json set_my_zorv_pp(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const auto account = arguments.text("windowsAccount"), name = arguments.text("appName"),
               version = arguments.text("appVersion"), time = arguments.text("timeText");
    const std::uint8_t flag = arguments.flag();
    std::int32_t result = 0;
    procedures.SetMyZorvPP(context, pointer(account), pointer(name), pointer(version), pointer(time), flag, &result,
                           arguments.cookie());
    return {{"result", result}};
}

// Zeroed memory of which only what is written costs anything. The heap has that for its first big blocks only: when
// some have been freed it keeps and reuses such memory, and zeroes all of it.
class Pages {
public:
    explicit Pages(std::size_t bytes)
        : bytes_(bytes),
          memory_(::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (memory_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ~Pages() { ::munmap(memory_, bytes_); }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    void* get() const { return memory_; }

private:
    const std::size_t bytes_;
    void* const memory_;
};

// Characters beyond the first plane are two units.
template <class Action>
Json with_output(const Arguments& arguments, Action action) {
    const auto size = arguments.integer<std::int32_t>("outputSize", 1, kLargestOutput);
    const auto room = static_cast<std::size_t>(size);
    const Pages pages((room + 1) * sizeof(wchar_t));
    auto* const output = static_cast<wchar_t*>(pages.get());
    action(output, size);
    const std::wstring_view text = output;
    const auto pairs = std::count_if(text.begin(), text.end(), [](wchar_t c) { return c > 0xFFFF; });
    const bool fits = text.size() + static_cast<std::size_t>(pairs) < room;
    return {{"output", fits ? to_utf8(text) : ""}};
}

Json get_uuid(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const std::int64_t cookie = arguments.cookie();
    return with_output(arguments,
                       [&](wchar_t* output, std::int32_t size) { procedures.GetUUID(context, output, size, cookie); });
}

Json big_data_service_call(const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    const std::wstring input = arguments.needed_text("input");
    const std::int64_t cookie = arguments.cookie();
    return with_output(arguments, [&](wchar_t* output, std::int32_t size) {
        procedures.BigDataServiceCall(context, input.c_str(), output, size, cookie);
    });
}

struct Row {
    std::string_view name;
    Call call;
};

using P = RpcProcedures;

// Those that are called on a context, and leave it open.
constexpr std::array<Row, 18> kRows = {{
    {"GetTestDataFunc", with_value<&P::GetTestDataFunc>},
    {"GetModelName", with_cookie<&P::GetModelName>},
    {"GetSerialNumber", with_cookie<&P::GetSerialNumber>},
    {"GetFamilyName", with_cookie<&P::GetFamilyName>},
    {"GetChassisTypes", with_cookie<&P::GetChassisTypes>},
    {"GetProductName", with_cookie<&P::GetProductName>},
    {"GetBatteryHealthMode", with_cookie<&P::GetBatteryHealthMode>},
    {"GetQuietFanMode", with_cookie<&P::GetQuietFanMode>},
    {"GetSystemInfoData", with_cookie<&P::GetSystemInfoData>},
    {"GetVersionString", with_cookie<&P::GetVersionString>},
    {"SetMyZorvPP", set_my_zorv_pp},
    {"GetUUID", get_uuid},
    {"SetBatteryHealth", with_value<&P::SetBatteryHealth>},
    {"SetQuietFan", with_flag<&P::SetQuietFan>},
    {"SetAppFolder", set_app_folder},
    {"SetMainSwitchByUser", with_flag<&P::SetMainSwitchByUser>},
    {"GetMainSwitchByUser", with_cookie<&P::GetMainSwitchByUser>},
    {"BigDataServiceCall", big_data_service_call},
}};

Json open_context(const RpcProcedures& procedures, RpcContexts& contexts) {
    const std::uint64_t number =
        contexts.add(std::make_shared<OpenContext>(procedures.RemoteOpen, procedures.RemoteClose));
    if (number == 0) {
        throw std::length_error("too many contexts on one connection");
    }
    return {{"context", number}};
}

void check(const std::shared_ptr<OpenContext>& context) {
    if (context == nullptr) {
        throw BadArgument{"no such context"};
    }
}

// It is closed by the last call that uses it, at the latest by this one's end.
Json close_context(const std::shared_ptr<OpenContext>& context) {
    check(context);
    return nullptr;
}

Json call(const RpcProcedures& procedures, RpcContexts& contexts, const RpcRequest& request) {
    if (request.method == "RemoteOpen") {
        return open_context(procedures, contexts);
    }
    const auto row = std::find_if(kRows.begin(), kRows.end(), [&](const Row& r) { return r.name == request.method; });
    const bool closes = request.method == "RemoteClose";
    if (row == kRows.end() && !closes) {
        throw RpcError{kRpcMethodNotFound, "Method not found", request.id};
    }
    const Arguments arguments(request.params);
    const auto number = static_cast<std::uint64_t>(arguments.integer<std::int64_t>("context"));
    if (closes) {
        return close_context(contexts.take(number));
    }
    const auto context = contexts.find(number);
    check(context);
    return row->call(procedures, context->get(), arguments);
}

// The words of what came out of a procedure.
std::string fault() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (std::uint32_t number) {
        return "error " + std::to_string(number);
    } catch (...) {
        return "a fault in the call";
    }
}

}  // namespace

std::string make_rpc_call(const RpcProcedures& procedures, RpcContexts& contexts, const std::string& line,
                          const RpcSend& send) {
    std::optional<Json> id;
    const auto error_line = [&](int code, const std::string& message) {
        return id ? rpc_error_line(*id, code, message) : "";
    };
    try {
        const RpcRequest request = parse_rpc_request(line);
        id = request.id;
        const RpcCallbackScope scope(send);
        const Json result = call(procedures, contexts, request);
        return id ? rpc_result_line(*id, result) : "";
    } catch (const RpcError& error) {
        id = error.id;
        return error_line(error.code, error.message);
    } catch (const BadArgument& bad) {
        return error_line(kRpcInvalidParams, "Invalid params: " + bad.message);
    } catch (...) {
        return error_line(kRpcFault, fault());
    }
}

}  // namespace platform
