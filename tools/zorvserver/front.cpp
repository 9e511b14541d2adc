// HTTP by the HTTP library. It gives every request to Handle, which logs one line for it.
#include "front.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>

namespace zorvalis {

namespace {

constexpr char kJson[] = "application/json";
constexpr char kRoot[] = "/api/FS/";
constexpr std::size_t kLargestRequest = 1 << 20;
constexpr const char* kPostCalls[] = {"query", "inituploadfile", "uploadfilechunk"};
constexpr char kFinish[] = "finishupload";

// The call that a request is for, and its input; an empty call when the server has none of that path and verb.
std::pair<std::string, std::string> CallOf(const httplib::Request& request) {
    std::string path = request.path;
    if (path.starts_with("http://") ||
        path.starts_with("https://")) {  // a client behind a proxy may send the whole address
        path.erase(0, path.find('/', path.find("://") + 3));
    }
    if (!path.starts_with(kRoot)) {
        return {};
    }
    const std::string rest = path.substr(sizeof kRoot - 1);
    if (request.method == "POST" &&
        std::find(std::begin(kPostCalls), std::end(kPostCalls), rest) != std::end(kPostCalls)) {
        return {rest, request.body};
    }
    const std::string finish = std::string(kFinish) + "/";
    if (request.method == "GET" && rest.starts_with(finish)) {
        return {kFinish, rest.substr(finish.size())};
    }
    return {};
}

// Closes the connection of a request without an answer. The HTTP library does not hand out its socket, so this looks
// among the descriptors of the process for the one that connects our port with the client's.
void Cut(const httplib::Request& request) {
    const auto port = [](int descriptor, auto name) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const bool known = name(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0;
        return known && address.sin_family == AF_INET ? ntohs(address.sin_port) : -1;
    };
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        if (port(descriptor, ::getpeername) == request.remote_port &&
            port(descriptor, ::getsockname) == request.local_port) {
            ::shutdown(descriptor, SHUT_RDWR);
        }
    }
}

// Sends half of the body after a head that announces all of it; the library then closes the connection.
void SendHalf(const std::string& body, httplib::Response& response) {
    response.set_content_provider(body.size(), kJson, [body](std::size_t, std::size_t, httplib::DataSink& sink) {
        sink.write(body.data(), body.size() / 2);
        return false;
    });
}

// A JSON object of `size` bytes, made piece by piece.
void SendHuge(std::size_t size, httplib::Response& response) {
    static const std::string head = R"({"status":"HUGE","padding":")", tail = "\"}";
    response.set_content_provider(size, kJson, [size](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        static const std::string padding(1 << 16, 'x');
        const std::size_t end = size - tail.size();
        const std::string& block = offset == 0 ? head : offset == end ? tail : padding;
        return sink.write(block.data(), &block == &padding ? std::min(padding.size(), end - offset) : block.size());
    });
}

// Clients choose names, so control characters, which could disturb a terminal, become "?".
std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return text;
}

std::string ClockTime() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[16] = "";
    std::strftime(text, sizeof text, "%H:%M:%S.", &local);
    const std::string fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
    return text + fraction;
}

}  // namespace

void Front::Attach(httplib::Server& server, const char* scheme) {
    const auto handle = [this, scheme](const httplib::Request& request, httplib::Response& response) {
        Handle(request, response, scheme);
    };
    server.Get(".*", handle);
    server.Post(".*", handle);
    // For requests that never reach Handle: broken, too large, or with another verb.
    server.set_error_handler([this, scheme](const httplib::Request& request, httplib::Response& response) {
        if (!response.has_header("Server")) {
            Log(scheme, request.method + " " + request.path, {}, "refused, HTTP " + std::to_string(response.status));
        }
    });
    server.set_payload_max_length(kLargestRequest);
    server.set_keep_alive_max_count(1);  // the product opens a connection for each call; a stop need not wait
    server.set_tcp_nodelay(true);
    // The library's default, SO_REUSEPORT, would let a second server share the port.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
}

void Front::Stop() {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
    stop_.notify_all();
}

void Front::Handle(const httplib::Request& request, httplib::Response& response, const char* scheme) {
    response.set_header("Server", "zorvserver");
    const auto [call, input] = CallOf(request);
    if (call.empty()) {
        response.status = 404;
        return Log(scheme, request.method + " " + request.path, {}, "no such call, HTTP 404");
    }
    Reply reply;
    try {
        const std::optional<Misdeed> misdeed = script_.Next(call);
        if (!misdeed || misdeed->DoneBefore()) {
            reply = calls_.Answer(call, input);
        }
        std::string outcome = reply.answer.is_null() ? "not done" : reply.answer.at("status").get<std::string>();
        if (misdeed) {
            outcome +=
                ", script: " + misdeed->name + (misdeed->number != 0 ? " " + std::to_string(misdeed->number) : "");
        }
        Log(scheme, call, reply, outcome);
        if (!misdeed || !Spoil(*misdeed, reply, request, response)) {
            response.set_content(DumpJson(reply.answer), kJson);
        }
    } catch (const std::exception& error) {
        response.status = 500;
        response.set_content(R"({"status":"SERVER_ERROR"})", kJson);
        Log(scheme, call, reply, std::string("SERVER_ERROR, HTTP 500: ") + error.what());
    }
}

bool Front::Spoil(const Misdeed& misdeed, Reply& reply, const httplib::Request& request, httplib::Response& response) {
    using Kind = Misdeed::Kind;
    switch (misdeed.kind) {
        case Kind::status:
            response.status = static_cast<int>(misdeed.number);
            response.set_content(misdeed.text, "text/plain");
            return true;
        case Kind::garbage:
            response.set_content("\x01\xFFgarbage{{]\x7F", "application/octet-stream");
            return true;
        case Kind::empty:
        case Kind::body:
            response.set_content(misdeed.kind == Kind::body ? misdeed.text : "", kJson);
            return true;
        case Kind::huge:
            SendHuge(static_cast<std::size_t>(misdeed.number) << 20, response);
            return true;
        case Kind::half:
            SendHalf(DumpJson(reply.answer), response);
            return true;
        case Kind::drop:
        case Kind::dropAfter:
            Cut(request);
            return true;
        case Kind::slow: {
            std::unique_lock lock(mutex_);
            if (stop_.wait_for(lock, std::chrono::milliseconds(misdeed.number), [this] { return stopping_; })) {
                Cut(request);
            }
            return false;
        }
        case Kind::offset:
            if (reply.answer.contains("filesize")) {
                reply.answer["filesize"] = misdeed.number;
            }
            return false;
    }
    return false;
}

void Front::Log(const std::string& scheme, const std::string& call, const Reply& reply, const std::string& outcome) {
    if (quiet_) {
        return;
    }
    std::string line = ClockTime() + "  " + scheme + "  " + call;
    for (const std::string& each : {reply.subject, reply.bytes, outcome}) {
        line += each.empty() ? "" : "  " + each;
    }
    std::printf("%s\n", Printable(line).c_str());
    std::fflush(stdout);
}

}  // namespace zorvalis
