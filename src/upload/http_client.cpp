// The four calls are one procedure, Exchange, and a table of log lines for each of them.
#include "upload/http_client.h"

#include <algorithm>
#include <cwchar>
#include <new>
#include <utility>
#include <vector>

#include "base/text.h"
#include "common/deployment.h"
#include "common/log.h"
#include "common/registry.h"
#include "platform/error.h"
#include "platform/http.h"

namespace zorvalis {
namespace {

constexpr wchar_t kUserAgent[] = L"ZORV Zorvalis/1.0";
constexpr std::int32_t kResolveTimeout = 10000;  // milliseconds
constexpr std::uint32_t kErrorTooLong = 12184;   // WinHTTP's number for an answer that exceeds a limit
constexpr std::uint16_t kPlainPort = 80;
constexpr std::uint16_t kSecurePort = 443;
// Unknown authority, wrong usage, wrong name, wrong date.
constexpr std::uint32_t kIgnoreCertificateFaults = 0x3300;

// The log lines of one call; null for a line that it does not write.
struct Words {
    const char* name;
    const char* specify;  // followed by the server
    const char* create;   // followed by the path when it ends in ": "
    const char* send;
    const char* sent;
    const char* received;
    const char* code;
    const char* piece;
    const char* outOfMemory;
    const char* noResponse;
};

constexpr Words kGet = {"[HttpGet]",
                        "[HttpGet] Specify an HTTP server: ",
                        "[HttpGet] Create an HTTP request handle.",
                        "[HttpGet] Send a request",
                        "[HttpGet] End a request",
                        "[HttpGet] Get the request",
                        "[HttpGet] ResponseCode: ",
                        "[HttpGet] result_s: ",
                        "[HttpGet] Out of memory",
                        "[HttpGet] Error has occurred: "};
constexpr Words kPost = {"[HttpPost]",
                         "[HttpPost] Specify an HTTP server: ",
                         "[HttpPost] Create an HTTP request handle. path: ",
                         "[HttpPost] Send a request...",
                         "[HttpPost] End the request.",
                         "[HttpPost] Get the Response.",
                         "[HttpPost] ResponseCode: ",
                         "[HttpPost] result_s: ",
                         "[HttpPost] Out of memory",
                         "[HttpPost][WinHttpReceiveResponse] Error has occurred: "};
// Kept: the line with the status code says "Error" for every code, 200 included.
constexpr Words kSSLGet = {"[HttpSSLGet]",
                           nullptr,
                           nullptr,
                           nullptr,
                           nullptr,
                           nullptr,
                           "[HttpSSLGet][ResponseCode] Error: ",
                           nullptr,
                           nullptr,
                           "[HttpSSLGet][WinHttpReceiveResponse] Error has occurred: "};
constexpr Words kSSLPost = {"[HttpSSLPost]",
                            nullptr,
                            nullptr,
                            nullptr,
                            nullptr,
                            nullptr,
                            "[HttpSSLPost][ResponseCode] Error: ",
                            nullptr,
                            nullptr,
                            "[HttpSSLPost][WinHttpReceiveResponse] Error has occurred: "};

struct Request {
    const Words& words;
    const wchar_t* verb;
    bool secure;
    std::string server;
    std::string path;
    const wchar_t* header;
    std::string body;
    std::int32_t connectTimeout;
    std::int32_t sendTimeout;
    std::int32_t receiveTimeout;
    HttpReport* report = nullptr;  // null: nobody asks
};

void LogLine(const char* line, const std::string& rest = "") {
    if (line != nullptr) {
        LogMessage(line + rest);
    }
}

// Logs and reports Windows' error. The first one counts: after a refused certificate the answer fails too.
void Fail(const Request& request, HttpStep step, const std::string& words) {
    const std::uint32_t error = platform::last_error();
    LogMessage(words + std::to_string(error));
    if (request.report != nullptr && request.report->failed == HttpStep::none) {
        request.report->failed = step;
        request.report->error = error;
    }
}

void LogError(const Request& request, HttpStep step, const char* call, const char* text) {
    Fail(request, step, std::string(request.words.name) + call + text);
}

// False ends the exchange. Kept: after a refused certificate the checks are relaxed, but the request is not sent again,
// so waiting for the answer fails as well. No request ever leaves with relaxed checks.
bool Send(platform::HttpExchange& exchange, const Request& request) {
    LogLine(request.words.send);
    if (!exchange.send(request.header, request.body)) {
        LogError(request, HttpStep::send, "[WinHttpSendRequest]", " Error has occurred: ");
        if (!request.secure || platform::last_error() != platform::kErrorSecureFailure) {
            return false;
        }
        if (!exchange.set_security_flags(kIgnoreCertificateFaults)) {
            LogError(request, HttpStep::send, "[WinHttpSetOption]", " Error has occurred: ");
            return false;
        }
    }
    LogLine(request.words.sent);
    return true;
}

bool IsAnsweredWith200(platform::HttpExchange& exchange, const Request& request) {
    const Words& words = request.words;
    if (!exchange.receive()) {
        Fail(request, HttpStep::receive, words.noResponse);
        return false;
    }
    LogLine(words.received);
    std::wstring status;
    if (!exchange.query_status(status)) {
        LogError(request, HttpStep::status, "[WinHttpQueryHeaders]", " Error: ");
        return false;
    }
    const long code = std::wcstol(status.c_str(), nullptr, 10);
    LogLine(words.code, std::to_string(code));
    if (request.report != nullptr) {
        request.report->status = code;
    }
    return code == 200;
}

// Kept: when a read fails, what was read until then is the result and not kTransportError. So does an answer end that
// exceeds the limit.
std::string ReadBody(platform::HttpExchange& exchange, const Request& request) {
    const Words& words = request.words;
    std::string result;
    try {
        for (std::uint32_t left = kMostAnswer;;) {
            std::uint32_t size = 0;
            if (!exchange.query_available(size)) {
                LogError(request, HttpStep::body, "[WinHttpQueryDataAvailable]", " Error: ");
                break;
            }
            if (size == 0) {
                break;
            }
            size = std::min(size, left);
            std::vector<char> piece(std::size_t{size} + 1);
            std::uint32_t count = 0;
            if (left == 0) {
                platform::set_last_error(kErrorTooLong);
            }
            if (left == 0 || !exchange.read(piece.data(), size, count)) {
                LogError(request, HttpStep::body, "[WinHttpReadData]", " Error: ");
                break;
            }
            left -= count;
            LogLine(words.piece, piece.data());
            result += piece.data();  // Kept: up to the first NUL byte of each piece
        }
    } catch (const std::bad_alloc&) {
        LogLine(words.outOfMemory);
    }
    return result;
}

// One request from the session to its end. The inner scope closes all handles before the last line is logged.
std::string Exchange(const Request& request) {
    const Words& words = request.words;
    std::string result = kTransportError;
    if (request.report != nullptr) {
        *request.report = {request.secure};
    }
    {
        platform::HttpExchange exchange;
        if (!exchange.open(kUserAgent)) {
            LogError(request, HttpStep::session, "[WinHttpOpen]", " Error has occurred: ");
            return result;  // Kept: the one failure without the last line
        }
        exchange.set_timeouts(kResolveTimeout, request.connectTimeout, request.sendTimeout, request.receiveTimeout);
        LogLine(words.specify, request.server);
        if (!exchange.connect(WidenBytes(request.server), request.secure ? kSecurePort : kPlainPort)) {
            LogError(request, HttpStep::connection, "[WinHttpConnect]", " Error has occurred: ");
        } else {
            const bool namesPath = words.create != nullptr && std::string_view(words.create).ends_with(": ");
            LogLine(words.create, namesPath ? request.path : "");
            if (exchange.open_request(request.verb, WidenBytes(request.path), request.secure) &&
                Send(exchange, request) && IsAnsweredWith200(exchange, request)) {
                result = ReadBody(exchange, request);
            }
        }
    }
    LogMessage(std::string(words.name) + " Return");
    return result;
}

const wchar_t* ContentType(std::int32_t contentType) {
    return contentType == kJsonContent ? L"Content-Type: application/json" : L"Content-Type: text/plain";
}

}  // namespace

std::string HttpGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                    std::int32_t receiveTimeout) {
    LogMessage("[HttpGet] Start");
    return Exchange({kGet, L"GET", false, std::move(server), std::move(path), nullptr, "", connectTimeout, sendTimeout,
                     receiveTimeout});
}

std::string HttpPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                     std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout,
                     HttpReport* report) {
    LogMessage("[HttpPost] Start");
    return Exchange({kPost, L"POST", false, std::move(server), std::move(path), ContentType(contentType),
                     postcontent.c_str(), connectTimeout, sendTimeout, receiveTimeout, report});
}

std::string HttpSSLGet(std::string server, std::string path, std::int32_t connectTimeout, std::int32_t sendTimeout,
                       std::int32_t receiveTimeout) {
    LogMessage("[HttpSSLGet] Start ");
    if (server == deployment::TestServer) {
        LogMessage(std::string("[HttpSSLGet] server == ") + deployment::TestServer);
        return HttpGet(std::move(server), std::move(path), connectTimeout, sendTimeout, receiveTimeout);
    }
    LogMessage("[HttpSSLGet] bypassSSL = false");
    return Exchange({kSSLGet, L"GET", true, std::move(server), std::move(path), nullptr, "", connectTimeout,
                     sendTimeout, receiveTimeout});
}

std::string HttpSSLPost(std::string server, std::string path, std::string postcontent, std::int32_t contentType,
                        std::int32_t connectTimeout, std::int32_t sendTimeout, std::int32_t receiveTimeout,
                        HttpReport* report) {
    LogMessage("[HttpSSLPost] start");
    LogMessage("[HttpSSLPost] server = " + server);
    LogMessage("[HttpSSLPost] path = " + path);
    LogMessage("[HttpSSLPost] postcontent = " + postcontent);
    if (server == deployment::TestServer) {
        LogMessage(std::string("[HttpSSLPost] server == ") + deployment::TestServer);
        return HttpPost(std::move(server), std::move(path), std::move(postcontent), contentType, connectTimeout,
                        sendTimeout, receiveTimeout, report);
    }
    LogMessage("[HttpSSLPost] bypassSSL = false");
    return Exchange({kSSLPost, L"POST", true, std::move(server), std::move(path), ContentType(contentType),
                     postcontent.c_str(), connectTimeout, sendTimeout, receiveTimeout, report});
}

bool checkNewtWork() {
    LogMessage("checkNewtWork");
    return platform::is_online();
}

std::string getBGServerURL() {
    LogMessage("getBGServerURL start");
    const std::wstring stored = ReadRegString(kLocalMachine, kProductKey, L"BGSERVER_URL");
    std::string server = stored == ERROR_READREG ? deployment::DefaultServer : NarrowBytes(stored);
    LogMessage("getBGServerURL :" + server);
    return server;
}

}  // namespace zorvalis
