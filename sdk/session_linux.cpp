// Calls on the stand-in machine: each procedure as a message to the service's socket.
#include "session.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "connection_linux.h"

namespace zorvalis_client {

using zorvalis::Json;

namespace {

constexpr auto kCloseLimit = std::chrono::seconds(2);

// The stand-in machine's folder is ZORV_MACHINE, else in the user's state folder.
std::string ServicesEndpoint() {
    const auto environment = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::filesystem::path(value != nullptr ? value : "");
    };
    std::filesystem::path machine = environment("ZORV_MACHINE");
    if (machine.empty()) {
        const std::filesystem::path state = environment("XDG_STATE_HOME");
        const std::filesystem::path home = environment("HOME");
        if (!state.is_absolute() && home.empty()) {
            throw Failure("no machine: neither ZORV_MACHINE nor HOME is set", ZORVALIS_NO_SERVICE);
        }
        machine = (state.is_absolute() ? state : home / ".local/state") / "zorv-machine";
    }
    return (std::filesystem::absolute(machine) / "run/ZorvHelpRpcEndpoint").string();
}

// One argument of a call: its member of the message, and of the answer.
template <class Value>
struct Input {
    const char* name;
    const Value& value;

    void AddTo(Json& message) const { message[name] = value; }
    static constexpr const char* answer = nullptr;
};

template <>
void Input<bool>::AddTo(Json& message) const {
    message[name] = value ? 1 : 0;
}

// As it reaches the service on Windows too, where a text ends at its first NUL.
template <>
void Input<std::string>::AddTo(Json& message) const {
    const Json text = value.c_str();
    try {
        static_cast<void>(text.dump());
    } catch (const std::domain_error&) {
        throw Failure("a text of the call is no UTF-8", ZORVALIS_NO_TEXT);
    }
    message[name] = text;
}

struct Output {
    const char *answer, *name;
    std::int32_t size;

    void AddTo(Json& message) const { message[name] = size; }
};

struct Result {
    const char* answer;

    void AddTo(Json&) const {}
};

// `limit` is in milliseconds, 0: none.
Deadline After(std::uint32_t limit) {
    return limit == 0 ? Deadline::max() : std::chrono::steady_clock::now() + std::chrono::milliseconds(limit);
}

template <class Value>
Value Member(const char* method, const Json& answer, const char* name) {
    try {
        if constexpr (std::is_integral_v<Value>) {
            return Integer<Value>(answer.at(name));
        } else {
            return answer.at(name).get<Value>();
        }
    } catch (const std::logic_error&) {
        throw Failure(std::string("the service's answer to ") + method + " has no " + name, ZORVALIS_PROTOCOL_ERROR);
    }
}

}  // namespace

struct Session::State {
    const pid_t process = ::getpid();
    Connection connection;
    std::int64_t context = 0;
    std::atomic<std::uint32_t> limit = 0;

    State(const std::string& path, const ZorvalisCallbacks& callbacks, Deadline deadline)
        : connection(path, callbacks, deadline) {
        const Json answer = connection.Call("RemoteOpen", Json::object(), deadline);
        context = Member<std::int64_t>("RemoteOpen", answer, "context");
    }

    // Waits for a moment until the service has closed the context, which otherwise ends with the connection.
    ~State() {
        try {
            const Deadline deadline = std::chrono::steady_clock::now() + kCloseLimit;
            connection.Call("RemoteClose", {{"context", context}}, std::min(deadline, After(limit)));
        } catch (const std::exception&) {
        }
    }

    template <class Answer, class... Arguments>
    Answer Call(const char* method, std::int64_t cookie, const Arguments&... arguments) {
        Json message = {{"context", context}, {"cookie", cookie}};
        (arguments.AddTo(message), ...);
        const Json answer = connection.Call(method, message, After(limit));
        const char* name = nullptr;
        ((name = arguments.answer != nullptr ? arguments.answer : name), ...);
        if constexpr (std::is_same_v<Answer, bool>) {
            return Member<std::int32_t>(method, answer, name) != 0;
        } else if constexpr (!std::is_void_v<Answer>) {
            return Member<Answer>(method, answer, name);
        }
    }
};

Session::Session(const ZorvalisCallbacks& callbacks, const std::string& endpoint, std::uint32_t limit)
    : state_(std::make_shared<State>(endpoint.empty() ? ServicesEndpoint() : endpoint, callbacks, After(limit))) {}

Session::~Session() = default;

void Session::SetLimit(std::uint32_t limit) {
    state_->limit = limit;
}

void Session::Cancel() {
    state_->connection.Cancel();
}

bool Session::IsParents() const {
    return state_->process != ::getpid();
}

bool Session::InCallback() const {
    return state_->connection.InCallback();
}

#define DEFINE(answer, name, parameters, cookie, ...)                          \
    answer Session::name parameters {                                          \
        return state_->Call<answer>(#name, cookie __VA_OPT__(, ) __VA_ARGS__); \
    }
ZORVALIS_CALLS(DEFINE)

}  // namespace zorvalis_client
