// The only way out to the network: four blocking calls, each complete in itself and safe from any thread.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The result of a call that failed, or was answered by anything but 200. A body of exactly this word reads as one too.
inline constexpr char kTransportError[] = "error";

// `server` is a bare host name; timeouts are in milliseconds. A body is sent, and an answer read, up to a NUL byte in
// each piece. `contentType` 1 is JSON, anything else plain text. The result is the body of a 200 answer, or what could
// be read of it, 16 MiB at most.
std::string HttpGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                    std::int32_t receiveTimeout);
std::string HttpPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                     std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout);

// Over TLS; the test server is handed over to the plain calls.
std::string HttpSSLGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                       std::int32_t receiveTimeout);
std::string HttpSSLPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                        std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout);

// Whether the machine counts as connected.
bool checkNewtWork();

// The server's host, read afresh for each request.
std::string getBGServerURL();

// The timeouts and the content type that every caller passes.
constexpr std::int32_t kConnectTimeout = 10000;
constexpr std::int32_t kTransferTimeout = 30000;
constexpr std::int32_t kJsonContent = 1;

}  // namespace zorvalis
