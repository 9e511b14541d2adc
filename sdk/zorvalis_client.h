// Talks to the Zorvalis service of this machine, from an application: opens a context on the service's local endpoint,
// makes calls, and gets answers and callbacks. All text is UTF-8. A client may be used by several threads at once.
//
//     zorvalis_client::Client client;
//     std::string answer = client.BigDataServiceCall(R"({"function":9,"version":1})");
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace zorvalis_client {

// What the service calls back during a direct call, before that call returns. Each may be empty. They may come on a
// thread of the client's own, one at a time for one call; the cookie is the one that the call was given. What a
// callback throws is dropped. It makes no calls of its own client.
struct Callbacks {
    std::function<void(std::int64_t result, std::int64_t cookie)> testData;
    std::function<void(const std::string& result, std::int32_t function, std::int64_t cookie)> text;
    std::function<void(bool result, std::int32_t function, std::int64_t cookie)> flag;
    std::function<void(std::int32_t result, std::int32_t function, std::int64_t cookie)> integer;
};

constexpr std::int32_t kNoService = 1722;  // the status where the service does not run

// A call that had no end: no service, a fault in the call, a lost connection (1726).
class Error : public std::runtime_error {
public:
    Error(const std::string& what, std::int32_t code) : std::runtime_error(what), status(code) {}
    const std::int32_t status;  // the transport's
};

class Client {
public:
    // Opens a context, which ends with the client. `endpoint` is another one than the service's own: a name on Windows,
    // a socket's path elsewhere.
    explicit Client(Callbacks callbacks = {}, const std::string& endpoint = {});
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // One call as a JSON text, answered by one. Empty: the service could not make an answer, or not one that fits into
    // `outputSize` 16-bit units, the terminator included.
    std::string BigDataServiceCall(const std::string& input, std::int32_t outputSize = 4096);

    // The direct calls. A getter's value comes by callback; without one the service was too busy.
    void GetTestDataFunc(std::int64_t value, std::int64_t cookie);
    void GetModelName(std::int64_t cookie);
    void GetSerialNumber(std::int64_t cookie);
    void GetFamilyName(std::int64_t cookie);
    void GetChassisTypes(std::int64_t cookie);
    void GetProductName(std::int64_t cookie);
    void GetBatteryHealthMode(std::int64_t cookie);
    void GetQuietFanMode(std::int64_t cookie);
    void GetSystemInfoData(std::int64_t cookie);
    void GetVersionString(std::int64_t cookie);
    void GetMainSwitchByUser(std::int64_t cookie);
    std::string GetUUID(std::int32_t outputSize = 64);

    // True when the consent was recorded. `timeText` is like "2026-11-12 09:08:07.006". Only an agreement is recorded.
    bool SetMyZorvPP(const std::string& windowsAccount, const std::string& appName, const std::string& appVersion,
                     const std::string& timeText, bool isAgreePP);
    void SetBatteryHealth(std::int64_t value, std::int64_t cookie);
    void SetQuietFan(bool on, std::int64_t cookie);
    void SetAppFolder(const std::string& path, std::int64_t cookie);
    void SetMainSwitchByUser(bool on, std::int64_t cookie);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zorvalis_client
