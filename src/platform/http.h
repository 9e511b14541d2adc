// One HTTP exchange, one call for each step that the system has, since the core's words depend on the step that failed.
// A failed step leaves its cause in `last_error`, in the numbers of Windows. Steps are made in the order in which they
// stand here; an object belongs to one thread.
//
// On the stand-in machine network.json says who is online, where a host and port lead, and which authority is trusted
// beside the system's own. Certificates are checked on both sides, against the name that was asked for.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

constexpr std::uint32_t kErrorSecureFailure = 12175;         // a certificate that is not accepted
constexpr std::uint32_t kErrorIncorrectHandleState = 12019;  // the answer after a refused certificate

class HttpExchange {
public:
    HttpExchange();
    ~HttpExchange();  // closes request, connection and session, in that order
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    // The system's default proxy setting applies; the stand-in machine has none.
    bool open(const wchar_t* user_agent);
    // Milliseconds, each for its own step.
    bool set_timeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive);
    bool connect(const std::wstring& server, std::uint16_t port);
    bool open_request(const wchar_t* verb, const std::wstring& path, bool secure);

    // Resolves, connects, checks the certificate and sends header and body. `header` may be null. A refused certificate
    // is kErrorSecureFailure, and no byte of the body has been sent then.
    bool send(const wchar_t* header, const std::string& body);

    // Which faults of a certificate later requests of this handle are to ignore.
    bool set_security_flags(std::uint32_t flags);

    bool receive();

    // The status code as decimal text.
    bool query_status(std::wstring& status);

    // How much of the body can be read at once; 0 at its end. Waits for more when there is none yet.
    bool query_available(std::uint32_t& size);
    bool read(char* buffer, std::uint32_t size, std::uint32_t& count);

private:
    struct State;
    State* state_;
};

// Whether the machine counts as connected.
bool is_online();

}  // namespace platform
