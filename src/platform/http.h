// One HTTP exchange: one call for each step of WinHTTP, since the core's log line names the step that failed. Each step
// answers false on failure and leaves the Windows error number in `last_error`. Call the steps in the order in which
// they stand here; an object belongs to one thread.
//
// On the stand-in machine network.json says whether the machine is online, where a host and port lead, and which
// authority is trusted beside those of the Linux host. Both sides check the certificate against the name asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

constexpr std::uint32_t kErrorSecureFailure = 12175;         // `send`: the certificate was refused
constexpr std::uint32_t kErrorIncorrectHandleState = 12019;  // `receive`: nothing was sent

class HttpExchange {
public:
    HttpExchange();
    ~HttpExchange();  // closes request, connection and session, in that order

    // Uses the default proxy of Windows; the stand-in machine uses no proxy.
    bool open(const wchar_t* user_agent);
    // Milliseconds, each for its own step; 0 is no limit.
    bool set_timeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive);
    // Only keeps host and port: a connection is made by `send`.
    bool connect(const std::wstring& server, std::uint16_t port);
    bool open_request(const wchar_t* verb, const std::wstring& path, bool secure);

    // Resolves, connects, checks the certificate and sends header and body. `header` is one header line or null. With a
    // refused certificate last_error is kErrorSecureFailure, and no byte of the body has been sent.
    bool send(const wchar_t* header, const std::string& body);

    // Asks that a later `send` ignores these faults of a certificate. The stand-in machine never ignores one.
    bool set_security_flags(std::uint32_t flags);

    // Waits for the answer's head.
    bool receive();

    // The status code as decimal text.
    bool query_status(std::wstring& status);

    // How many bytes of the body `read` would give now; waits for the first one. 0 at the body's end.
    bool query_available(std::uint32_t& size);
    // Reads at most `size` bytes; `count` says how many, 0 at the body's end.
    bool read(char* buffer, std::uint32_t size, std::uint32_t& count);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether Windows (network.json) says that the machine has a network. Any thread.
bool is_online();

}  // namespace platform
