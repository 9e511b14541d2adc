// The only way out to the network: four blocking calls. Each opens, uses and closes everything it needs, so any thread
// may call at any time. No call throws for a failed exchange or tries again.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The result of a call that failed or got a status other than 200. Kept: a server's body of exactly this word counts as
// a failure too.
inline constexpr char kTransportError[] = "error";

// What a request came to, for a tool that tells of it: the first step that failed, with Windows' number.
enum class HttpStep { session, connection, send, receive, status, body, none };
struct HttpReport {
    bool secure = false;
    HttpStep failed = HttpStep::none;
    std::uint32_t error = 0;
    long status = 0;  // of the answer; 0 without one
};

// The longest answer that is taken, in bytes.
inline constexpr std::uint32_t kMostAnswer = 16 << 20;

// Plain HTTP on port 80. `server` is a bare host name, timeouts are in milliseconds, `contentType` 1 is JSON and
// anything else plain text. Returns the body of an answer with status 200, or kTransportError. Kept: when reading fails
// half way, the result is what was read until then; a body is sent up to its first NUL byte, and each piece of an
// answer is taken up to its first NUL byte. An answer is cut after 16 MiB.
std::string HttpGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                    std::int32_t receiveTimeout);
std::string HttpPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                     std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout,
                     HttpReport* report = nullptr);

// The same over TLS on port 443, with the server's certificate checked. The build's test server is spoken to without
// TLS, by the calls above.
std::string HttpSSLGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                       std::int32_t receiveTimeout);
std::string HttpSSLPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                        std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout,
                        HttpReport* report = nullptr);

// Whether Windows counts the machine as connected; on the stand-in machine network.json says so.
bool checkNewtWork();

// The server's bare host name, in spite of "URL": the registry value BGSERVER_URL, or the host that the build names.
// Read afresh for each request.
std::string getBGServerURL();

// The timeouts, in milliseconds, and the content type that every caller passes.
constexpr std::int32_t kConnectTimeout = 10000;
constexpr std::int32_t kTransferTimeout = 30000;
constexpr std::int32_t kJsonContent = 1;

}  // namespace zorvalis
