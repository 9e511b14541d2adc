#include "service_client.h"

#include "output.h"

namespace zorvalis {

namespace {

constexpr std::int32_t kOutputSize = 1 << 20;

Failure FailureOf(const zorvalis_client::Error& error) {
    const std::string words = ReadableText(error.what());
    const std::string status = std::to_string(error.status);
    return error.status == zorvalis_client::kNoService
               ? Failure{"the service does not run: " + words + "; `zorvctl service start` starts it"}
               : Failure{"the call failed: " + words + (words.ends_with(status) ? "" : " (error " + status + ")")};
}

}  // namespace

ServiceClient::ServiceClient() {
    CheckMachine();
    const auto note = [this](const char* procedure) {
        return [this, procedure](const auto& result, std::int32_t function, std::int64_t cookie) {
            std::string text;
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(result)>>) {
                text = std::to_string(result);
            } else {
                text = ReadableText(result);
            }
            heard_ += std::string(procedure) + "  function " + std::to_string(function) + "  cookie " +
                      std::to_string(cookie) + "  result " + text + "\n";
        };
    };
    try {
        client_ = std::make_unique<zorvalis_client::Client>(
            zorvalis_client::Callbacks{nullptr, note("CallbackText"), note("CallbackFlag"), note("CallbackInteger")});
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

std::string ServiceClient::Direct(const std::function<void(zorvalis_client::Client&)>& call) {
    heard_.clear();
    try {
        call(*client_);
    } catch (const zorvalis_client::Error& error) {
        throw FailureOf(error);
    }
    return heard_;
}

}  // namespace zorvalis
