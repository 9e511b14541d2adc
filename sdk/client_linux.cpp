// The client on the stand-in machine: each procedure as a message to the service's socket.
#include <memory>
#include <utility>

#include "connection_linux.h"
#include "platform/linux/wide.h"
#include "platform/machine.h"

namespace zorvalis_client {

using zorvalis::Json;

namespace {

constexpr std::int32_t kNoText = 1113;

// As it reaches the service on Windows too, where a text ends at its first NUL.
const char* Text(const std::string& text) {
    if (!platform::to_wide(text.c_str())) {
        throw Error("a text of the call is no UTF-8", kNoText);
    }
    return text.c_str();
}

}  // namespace

struct Client::State {
    Connection connection;
    std::int64_t context = 0;

    State(const std::string& path, Callbacks callbacks) : connection(path, std::move(callbacks)) {
        context = Ask<std::int64_t>("RemoteOpen", Json::object(), "context");
    }
    ~State() { connection.CloseContext(context); }

    // A member of the answer.
    template <class Result>
    Result Ask(const char* method, Json parameters, const char* member) {
        try {
            return Answer(method, std::move(parameters)).at(member).get<Result>();
        } catch (const std::logic_error&) {
            throw Error(std::string("the service's answer to ") + method + " has no " + member, kProtocolError);
        }
    }
    Json Answer(const char* method, Json parameters) {
        if (context != 0) {
            parameters["context"] = context;
        }
        return connection.Call(method, parameters);
    }
    void Get(const char* method, std::int64_t cookie) { Answer(method, {{"cookie", cookie}}); }
};

Client::Client(Callbacks callbacks, const std::string& endpoint) {
    const std::string path = endpoint.empty() ? platform::machine_folder() + "/run/ZorvHelpRpcEndpoint" : endpoint;
    state_ = std::make_unique<State>(path, std::move(callbacks));
}

Client::~Client() = default;

std::string Client::BigDataServiceCall(const std::string& input, std::int32_t outputSize) {
    return state_->Ask<std::string>("BigDataServiceCall",
                                    {{"input", Text(input)}, {"outputSize", outputSize}, {"cookie", 0}}, "output");
}

void Client::GetTestDataFunc(std::int64_t value, std::int64_t cookie) {
    state_->Answer("GetTestDataFunc", {{"value", value}, {"cookie", cookie}});
}

void Client::GetModelName(std::int64_t cookie) {
    state_->Get("GetModelName", cookie);
}

void Client::GetSerialNumber(std::int64_t cookie) {
    state_->Get("GetSerialNumber", cookie);
}

void Client::GetFamilyName(std::int64_t cookie) {
    state_->Get("GetFamilyName", cookie);
}

void Client::GetChassisTypes(std::int64_t cookie) {
    state_->Get("GetChassisTypes", cookie);
}

void Client::GetProductName(std::int64_t cookie) {
    state_->Get("GetProductName", cookie);
}

void Client::GetBatteryHealthMode(std::int64_t cookie) {
    state_->Get("GetBatteryHealthMode", cookie);
}

void Client::GetQuietFanMode(std::int64_t cookie) {
    state_->Get("GetQuietFanMode", cookie);
}

void Client::GetSystemInfoData(std::int64_t cookie) {
    state_->Get("GetSystemInfoData", cookie);
}

void Client::GetVersionString(std::int64_t cookie) {
    state_->Get("GetVersionString", cookie);
}

void Client::GetMainSwitchByUser(std::int64_t cookie) {
    state_->Get("GetMainSwitchByUser", cookie);
}

std::string Client::GetUUID(std::int32_t outputSize) {
    return state_->Ask<std::string>("GetUUID", {{"outputSize", outputSize}, {"cookie", 0}}, "output");
}

bool Client::SetMyZorvPP(const std::string& windowsAccount, const std::string& appName, const std::string& appVersion,
                         const std::string& timeText, bool isAgreePP) {
    const Json parameters = {{"windowsAccount", Text(windowsAccount)},
                             {"appName", Text(appName)},
                             {"appVersion", Text(appVersion)},
                             {"timeText", Text(timeText)},
                             {"flag", isAgreePP ? 1 : 0},
                             {"cookie", 0}};
    return state_->Ask<std::int32_t>("SetMyZorvPP", parameters, "result") != 0;
}

void Client::SetBatteryHealth(std::int64_t value, std::int64_t cookie) {
    state_->Answer("SetBatteryHealth", {{"value", value}, {"cookie", cookie}});
}

void Client::SetQuietFan(bool on, std::int64_t cookie) {
    state_->Answer("SetQuietFan", {{"flag", on ? 1 : 0}, {"cookie", cookie}});
}

void Client::SetAppFolder(const std::string& path, std::int64_t cookie) {
    state_->Answer("SetAppFolder", {{"path", Text(path)}, {"cookie", cookie}});
}

void Client::SetMainSwitchByUser(bool on, std::int64_t cookie) {
    state_->Answer("SetMainSwitchByUser", {{"flag", on ? 1 : 0}, {"cookie", cookie}});
}

}  // namespace zorvalis_client
