#include "platform/linux/rpc_call.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <tuple>

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

    std::optional<std::wstring> text(const char* name, bool takes_null) const {
        const auto found = params_.find(name);
        if (found == params_.end() || found->is_null()) {
            return takes_null ? std::nullopt : throw BadArgument{name + std::string(" is missing")};
        }
        auto text = found->is_string() ? to_wide(found->get_ref<const std::string&>()) : std::nullopt;
        return text ? text : throw BadArgument{name + std::string(" is a text")};
    }

private:
    static constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();

    const Json& params_;
};

using P = RpcProcedures;

// Kept: a null text of these is handed on; for any other procedure a text is needed.
template <auto Procedure>
constexpr bool kTakesNull = false;
template <>
constexpr bool kTakesNull<&P::SetMyZorvPP> = true;

// Zeroed memory. Of pages only what is written costs anything; the heap would keep and reuse big blocks, and zero all
// of them. A small block is had from it twenty times as fast.
class Zeroed {
public:
    explicit Zeroed(std::size_t bytes)
        : pages_(bytes > kSmall ? bytes : 0),
          memory_(pages_ == 0 ? std::calloc(bytes, 1)
                              : ::mmap(nullptr, pages_, PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (memory_ == MAP_FAILED || memory_ == nullptr) {
            throw std::bad_alloc();
        }
    }
    ~Zeroed() { pages_ == 0 ? std::free(memory_) : static_cast<void>(::munmap(memory_, pages_)); }
    Zeroed(const Zeroed&) = delete;
    Zeroed& operator=(const Zeroed&) = delete;

    void* get() const { return memory_; }

private:
    static constexpr std::size_t kSmall = 1 << 15;

    const std::size_t pages_;  // bytes, 0 for a block of the heap
    void* const memory_;
};

// One parameter of a procedure: made of the message's member of its name, given to the procedure, and told in the
// result, if it is an output.
struct Input {
    void tell(Json&) const {}
};

template <class Integer>
struct Parameter : Input {
    Parameter(const Arguments& arguments, const char* const* name, bool) : value(arguments.integer<Integer>(*name)) {}
    Integer get() const { return value; }

    Integer value;
};

template <>
struct Parameter<const wchar_t*> : Input {
    Parameter(const Arguments& arguments, const char* const* name, bool takes_null)
        : text(arguments.text(*name, takes_null)) {}
    const wchar_t* get() const { return text ? text->c_str() : nullptr; }

    std::optional<std::wstring> text;
};

// The size of an output. Kept: it is looked at behind all other arguments, so that of two wrong ones the other is told.
template <>
struct Parameter<std::int32_t> : Input {
    Parameter(const Arguments& given, const char* const* named, bool) : arguments(&given), name(*named) {}
    std::int32_t get() const { return arguments->integer<std::int32_t>(name, 1, kLargestOutput); }

    const Arguments* arguments;
    const char* name;
};

template <>
struct Parameter<std::int32_t*> {
    Parameter(const Arguments&, const char* const* named, bool) : name(*named) {}
    std::int32_t* get() { return &value; }
    void tell(Json& result) const { result[name] = value; }

    const char* name;
    std::int32_t value = 0;
};

// An output, whose size comes next.
template <>
struct Parameter<wchar_t*> {
    Parameter(const Arguments& arguments, const char* const* named, bool)
        : size(arguments, named + 1, false), name(*named) {}
    wchar_t* get() {
        text = std::make_unique<Zeroed>((static_cast<std::size_t>(size.get()) + 1) * sizeof(wchar_t));
        return static_cast<wchar_t*>(text->get());
    }
    // Characters beyond the first plane are two units.
    void tell(Json& result) const {
        const std::wstring_view written = static_cast<const wchar_t*>(text->get());
        const auto pairs = std::count_if(written.begin(), written.end(), [](wchar_t c) { return c > 0xFFFF; });
        const bool fits = written.size() + static_cast<std::size_t>(pairs) < static_cast<std::size_t>(size.get());
        result[name] = fits ? to_utf8(written) : "";
    }

    Parameter<std::int32_t> size;
    const char* name;
    std::unique_ptr<Zeroed> text;
};

struct Row {
    std::string_view name;
    Json (*call)(const Row& row, const RpcProcedures& procedures, RpcContext context, const Arguments& arguments);
    const char* parameters[16];
};

template <auto Procedure, class... Parameters>
Json call(const Row& row, const RpcProcedures& procedures, RpcContext context, const Arguments& arguments) {
    auto name = [at = &row.parameters[0]]() mutable { return at++; };
    std::tuple<Parameter<Parameters>...> all{// whose braces keep the parameters' order
                                             Parameter<Parameters>(arguments, name(), kTakesNull<Procedure>)...};
    Json result;
    std::apply([&](auto&... each) { (procedures.*Procedure)(context, each.get()...), (each.tell(result), ...); }, all);
    return result;
}

template <auto Procedure, class... Parameters>
constexpr auto caller(void (*P::*)(RpcContext, Parameters...)) {
    return call<Procedure, Parameters...>;
}

constexpr Row kRows[] = {
#define ROW(name, parameters, arguments, ...) {#name, caller<&P::name>(&P::name), {__VA_ARGS__}},
    ZORVALIS_PROCEDURES(ROW)
#undef ROW
};

Json open_context(const RpcProcedures& procedures, RpcContexts& contexts) {
    const std::uint64_t number =
        contexts.add(std::make_shared<OpenContext>(procedures.RemoteOpen, procedures.RemoteClose));
    if (number == 0) {
        throw std::length_error("too many contexts on one connection");
    }
    return {{"context", number}};
}

Json call(const RpcProcedures& procedures, RpcContexts& contexts, const RpcRequest& request) {
    if (request.method == "RemoteOpen") {
        return open_context(procedures, contexts);
    }
    const auto* const row =
        std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) { return r.name == request.method; });
    const bool closes = request.method == "RemoteClose";
    if (row == std::end(kRows) && !closes) {
        throw RpcError{kRpcMethodNotFound, "Method not found", request.id};
    }
    const Arguments arguments(request.params);
    const auto number = static_cast<std::uint64_t>(arguments.integer<std::int64_t>("context"));
    // One that is closed ends with the last call that uses it, at the latest with this one.
    const auto context = closes ? contexts.take(number) : contexts.find(number);
    if (context == nullptr) {
        throw BadArgument{"no such context"};
    }
    return closes ? Json() : row->call(*row, procedures, context->get(), arguments);
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
