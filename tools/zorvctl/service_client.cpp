// Calls the service through the client library of sdk/, and words what goes wrong.
#include "service_client.h"

#include <algorithm>
#include <charconv>
#include <tuple>
#include <type_traits>

#include "output.h"
#include "zorvalis_procedures.h"

namespace zorvalis {

namespace {

using zorvalis_client::Client;

constexpr std::int32_t kOutputSize = 1 << 20;
constexpr std::int64_t kCookie = 1;  // that direct calls carry; the callbacks bring it back

Failure FailureOf(const zorvalis_client::Error& error) {
    const std::string words = ReadableText(error.what());
    const std::string status = std::to_string(error.status);
    return error.status == zorvalis_client::kNoService
               ? Failure{"the service does not run: " + words + "; `zorvctl service start` starts it"}
               : Failure{"the call failed: " + words + (words.ends_with(status) ? "" : " (error " + status + ")")};
}

// Turns the next word into the type of its parameter. The last parameter has no word: it is the cookie, or the size of
// the room for the answer.
template <class Value>
Value Argument(const std::string*& word, const std::string* end) {
    if constexpr (std::is_same_v<Value, std::string>) {
        return *word++;
    } else if constexpr (std::is_same_v<Value, std::int32_t>) {
        return kOutputSize;
    } else {
        std::int64_t value = kCookie;
        if (word != end) {
            const char* const last = word->data() + word->size();
            const auto [rest, error] = std::from_chars(word->data(), last, value);
            Require(error == std::errc() && rest == last, *word + " is no number", kWrongUsage);
            const bool isFlag = std::is_same_v<Value, bool>;
            Require(!isFlag || value == 0 || value == 1, "a flag is 0 or 1, not " + *word, kWrongUsage);
            ++word;
        }
        return static_cast<Value>(value);
    }
}

template <class Answer, class... Parameters>
std::string Make(Answer (Client::*procedure)(Parameters...), Client& client, const std::vector<std::string>& words) {
    constexpr std::size_t kWords = sizeof...(Parameters) - (std::is_same_v<Answer, bool> ? 0 : 1);
    Require(words.size() == kWords, "arguments that it takes: " + std::to_string(kWords), kWrongUsage);
    const std::string *word = words.data(), *const end = word + words.size();
    const std::tuple<std::decay_t<Parameters>...> arguments{Argument<std::decay_t<Parameters>>(word, end)...};
    const auto call = [&](const auto&... each) { return (client.*procedure)(each...); };
    if constexpr (std::is_void_v<Answer>) {
        std::apply(call, arguments);
        return "";
    } else if constexpr (std::is_same_v<Answer, bool>) {
        return std::apply(call, arguments) ? "1\n" : "0\n";
    } else {
        return ReadableText(std::apply(call, arguments)) + "\n";
    }
}

struct DirectCall {
    std::string_view name;
    std::string (*make)(Client& client, const std::vector<std::string>& words);
};

constexpr DirectCall kDirectCalls[] = {
#define ROW(answer, name, ...) \
    {#name, [](Client& client, const auto& words) { return Make(&Client::name, client, words); }},
    ZORVALIS_CALLS(ROW)
#undef ROW
};

const DirectCall* Find(const std::string& procedure) {
    return std::find_if(std::begin(kDirectCalls), std::end(kDirectCalls),
                        [&](const DirectCall& call) { return call.name == procedure; });
}

}  // namespace

ServiceClient::ServiceClient() {
    CheckMachine();
    const auto note = [this](const char* procedure) {
        return [this, procedure](const auto& result, auto... functionAndCookie) {
            std::string text;
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(result)>>) {
                text = std::to_string(result);
            } else {
                text = ReadableText(result);
            }
            const char* words[] = {"  function ", "  cookie "};
            const char** word = std::end(words) - sizeof...(functionAndCookie);
            heard_ += procedure;
            ((heard_ += *word++ + std::to_string(functionAndCookie)), ...);
            heard_ += "  result " + text + "\n";
        };
    };
    try {
        client_ = std::make_unique<zorvalis_client::Client>(zorvalis_client::Callbacks{
            note("CallbackTestData"), note("CallbackText"), note("CallbackFlag"), note("CallbackInteger")});
    } catch (const zorvalis_client::Error& error) {
        throw FailureOf(error);
    }
}

std::string ServiceClient::Call(const std::string& text) {
    try {
        const std::string answer = client_->BigDataServiceCall(text, kOutputSize);
        Require(!answer.empty(), "the service gave an empty answer: the call was no JSON, or another kept it busy");
        return answer;
    } catch (const zorvalis_client::Error& error) {
        throw FailureOf(error);
    }
}

std::string ServiceClient::Ask(int function, const Json& parameters) {
    Json call = {{"function", function}, {"version", 1}};
    if (!parameters.is_null()) {
        call["parameter"] = parameters;
    }
    const std::string text = Call(DumpJson(call));
    std::string status, parameter;
    try {
        const Json answer = ParseJson(text);
        status = answer.at("status").get<std::string>();
        parameter = answer.at("parameter").get<std::string>();
    } catch (const std::logic_error& error) {
        throw Failure{"the service's answer is not understood: " + ReadableText(text) + ": " + error.what()};
    }
    Require(status == "Success", "the service refuses: " + ReadableText(parameter));
    return parameter;
}

std::string ServiceClient::Get(int function) {
    const std::string parameter = Ask(function);
    try {
        return ParseJson(parameter).at("p1").get<std::string>();
    } catch (const std::logic_error& error) {
        throw Failure{"the service's answer is not understood: " + ReadableText(parameter) + ": " + error.what()};
    }
}

bool ServiceClient::HasDirect(const std::string& procedure) {
    return Find(procedure) != std::end(kDirectCalls);
}

std::string ServiceClient::Direct(const std::string& procedure, const std::vector<std::string>& words) {
    heard_.clear();
    try {
        const std::string answer = Find(procedure)->make(*client_, words);
        return heard_ + answer;
    } catch (const zorvalis_client::Error& error) {
        throw FailureOf(error);
    }
}

}  // namespace zorvalis
