// The exchange by libcurl: one transfer, driven by hand so that it stops after each step of WinHTTP. Errors are those
// that WinHTTP reports for the same fault.
#include "platform/http.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/linux/curl_library.h"
#include "platform/linux/network_file.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

constexpr std::uint32_t kInternalError = 12004;
constexpr std::uint32_t kTimeout = 12002;
constexpr std::uint32_t kInvalidUrl = 12005;
constexpr std::uint32_t kNameNotResolved = 12007;
constexpr std::uint32_t kCannotConnect = 12029;
constexpr std::uint32_t kConnectionError = 12030;
constexpr std::uint32_t kInvalidServerResponse = 12152;
constexpr std::uint32_t kChannelError = 12157;

constexpr std::size_t kBuffered = 64 * 1024;  // the transfer pauses while this much waits to be read
constexpr std::size_t kPiece = 8 * 1024;      // of the body, that query_available announces at most

std::uint32_t error_of(CURLcode code) {
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return kNameNotResolved;
        case CURLE_COULDNT_CONNECT:
            return kCannotConnect;
        case CURLE_OPERATION_TIMEDOUT:
            return kTimeout;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            return kErrorSecureFailure;
        case CURLE_SSL_CONNECT_ERROR:
            return kChannelError;
        case CURLE_URL_MALFORMAT:
            return kInvalidUrl;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer without a status line
            return kInvalidServerResponse;
        case CURLE_OUT_OF_MEMORY:
            return 14;
        default:
            return kConnectionError;
    }
}

// The path for the request line; blanks, control characters and bytes from 127 on are escaped, as WinHTTP does.
std::string target_of(const std::wstring& path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string target = path.starts_with(L'/') ? "" : "/";
    for (const char character : to_utf8(path)) {
        if (character > ' ' && character < 127) {
            target += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            target += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return target;
}

template <auto Function>
struct Release {
    void operator()(auto* object) const { (curl().*Function)(object); }
};

// A timeout of 0 or less means no limit.
std::int64_t limit_of(std::int32_t timeout) {
    return timeout > 0 ? timeout : INT_MAX;
}

}  // namespace

// One transfer of libcurl. The callbacks below run inside `drive`, on the caller's thread.
struct HttpExchange::State {
    std::string agent;
    std::int64_t connect_timeout = INT_MAX;  // milliseconds, as the next two; includes the TLS handshake
    std::int64_t send_timeout = INT_MAX;
    std::int64_t receive_timeout = INT_MAX;
    std::string host;
    std::uint16_t port = 0;
    std::string verb;
    std::string target;
    bool secure = false;

    // Released from the last to the first.
    std::unique_ptr<curl_slist, Release<&Curl::list_free>> headers, route;
    std::unique_ptr<CURLM, Release<&Curl::multi_cleanup>> multi;
    std::unique_ptr<CURL, Release<&Curl::easy_cleanup>> easy;

    std::string body;
    curl_off_t sent = 0;     // of it
    bool connected = false;  // TLS too: the certificate is accepted
    long status = 0;
    bool head_done = false;
    std::string arrived;    // the part of the body that was received,
    std::size_t taken = 0;  // and how much of it `read` has given away
    bool paused = false;
    bool done = false;
    bool usable = false;  // the whole request was sent, so an answer may come
    CURLcode result = CURLE_OK;
    std::chrono::steady_clock::time_point progress;  // when bytes last moved

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    // While the connection is known: a transfer that only ends leaves what it kept while it was paused.
    ~State() {
        if (easy != nullptr && multi != nullptr) {
            curl().multi_remove(multi.get(), easy.get());
        }
    }

    void moved() { progress = std::chrono::steady_clock::now(); }

    bool fail() const {
        // libcurl reports success for an answer that ends within its head.
        set_last_error(result == CURLE_OK ? kInvalidServerResponse : error_of(result));
        return false;
    }

    void add_header(const std::string& line) { headers.reset(curl().list_append(headers.release(), line.c_str())); }

    static int on_connected(void* context, char*, char*, int, int) {
        auto& state = *static_cast<State*>(context);
        state.connected = true;
        state.moved();
        return CURL_PREREQFUNC_OK;
    }

    // `sent` counts the body alone.
    static int on_progress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
        auto& state = *static_cast<State*>(context);
        if (std::exchange(state.sent, sent) != sent) {
            state.moved();
        }
        return 0;
    }

    // Called for each line of the head. An empty line ends it, but not that of an interim answer (status 1xx).
    static std::size_t on_header(char* buffer, std::size_t size, std::size_t count, void* context) {
        auto& state = *static_cast<State*>(context);
        const std::string_view line(buffer, size * count);
        state.moved();
        if (state.head_done) {
            return line.size();  // a trailer, behind the last chunk of the body
        }
        if (line.starts_with("HTTP/")) {
            const std::size_t blank = std::min(line.find(' '), line.size() - 1);
            state.status = 0;
            std::from_chars(line.data() + blank + 1, line.data() + line.size(), state.status);
        } else if (line == "\r\n" || line == "\n") {
            state.head_done = state.status >= 200;
        }
        return line.size();
    }

    static std::size_t on_body(char* buffer, std::size_t size, std::size_t count, void* context) {
        auto& state = *static_cast<State*>(context);
        state.moved();
        if (state.arrived.size() - state.taken >= kBuffered) {
            state.paused = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        try {
            state.arrived.append(buffer, size * count);
        } catch (const std::bad_alloc&) {
            return 0;  // tells libcurl to end the transfer
        }
        return size * count;
    }

    template <class Value>
    void set(CURLoption option, Value value) {
        curl().easy_setopt(easy.get(), option, value);
    }

    std::string server() const { return host + ":" + std::to_string(port); }

    // Sets the request up. libcurl connects to the network's address, but names and checks `host`.
    void prepare(const wchar_t* header, Network network) {
        const std::string url = (secure ? "https://" : "http://") + server() + "/";
        route.reset(curl().list_append(nullptr, (server() + ":" + network.address).c_str()));
        // A name without a value removes libcurl's own header: WinHTTP sends none of these by itself.
        add_header(header != nullptr ? to_utf8(header) : "Content-Type:");
        add_header("Accept:");
        add_header("Expect:");
        set(CURLOPT_URL, url.c_str());
        set(CURLOPT_REQUEST_TARGET, target.c_str());
        set(CURLOPT_CONNECT_TO, route.get());
        set(CURLOPT_HTTPHEADER, headers.get());
        set(CURLOPT_USERAGENT, agent.c_str());
        set(CURLOPT_PROXY, "");
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connect_timeout));
        set(CURLOPT_PREREQFUNCTION, &on_connected);
        set(CURLOPT_PREREQDATA, static_cast<void*>(this));
        set(CURLOPT_HEADERFUNCTION, &on_header);
        set(CURLOPT_HEADERDATA, static_cast<void*>(this));
        set(CURLOPT_WRITEFUNCTION, &on_body);
        set(CURLOPT_WRITEDATA, static_cast<void*>(this));
        if (verb == "POST") {
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
            set(CURLOPT_POSTFIELDS, body.c_str());
            set(CURLOPT_NOPROGRESS, 0L);
            set(CURLOPT_XFERINFOFUNCTION, &on_progress);
            set(CURLOPT_XFERINFODATA, static_cast<void*>(this));
        }
        set(CURLOPT_SHARE, curl().sessions);
        if (network.authority) {
            // libcurl still trusts the host's folder of certificates. It resumes a session for the same options only:
            // so it gets the certificates and not their file's name, which would stay when they change.
            curl_blob certificates{network.authority->data(), network.authority->size(), CURL_BLOB_COPY};
            set(CURLOPT_CAINFO_BLOB, &certificates);
        }
    }

    // Runs the transfer until `reached` is true or the transfer ends. False when no byte moves for `timeout`
    // milliseconds, which ends the transfer.
    template <class Condition>
    bool drive(std::int64_t timeout, Condition reached) {
        moved();
        while (!done && !reached()) {
            int running = 0;
            curl().multi_perform(multi.get(), &running);
            int left = 0;
            while (const CURLMsg* const message = curl().multi_info(multi.get(), &left)) {
                if (message->msg == CURLMSG_DONE) {
                    done = true;
                    result = message->data.result;
                }
            }
            if (done || reached()) {
                break;
            }
            const auto still = std::chrono::steady_clock::now() - progress;
            const std::int64_t rest = timeout - std::chrono::duration_cast<std::chrono::milliseconds>(still).count();
            if (rest <= 0) {
                done = true;
                result = CURLE_OPERATION_TIMEDOUT;
                return false;
            }
            curl().multi_poll(multi.get(), nullptr, 0, static_cast<int>(std::min<std::int64_t>(rest, 1000)), nullptr);
        }
        return true;
    }
};

HttpExchange::HttpExchange() : state_(new State) {}

HttpExchange::~HttpExchange() = default;

bool HttpExchange::open(const wchar_t* user_agent) {
    if (!curl().complete) {
        set_last_error(kInternalError);
        return false;
    }
    state_->agent = to_utf8(user_agent);
    return true;
}

// The resolve timeout has no use: a name is looked up in network.json.
bool HttpExchange::set_timeouts(std::int32_t, std::int32_t connect, std::int32_t send, std::int32_t receive) {
    state_->connect_timeout = limit_of(connect);
    state_->send_timeout = limit_of(send);
    state_->receive_timeout = limit_of(receive);
    return true;
}

bool HttpExchange::connect(const std::wstring& server, std::uint16_t port) {
    state_->host = to_utf8(server);
    state_->port = port;
    if (server.empty()) {
        set_last_error(kInvalidUrl);
        return false;
    }
    return true;
}

bool HttpExchange::open_request(const wchar_t* verb, const std::wstring& path, bool secure) {
    state_->verb = to_utf8(verb);
    state_->target = target_of(path);
    state_->secure = secure;
    state_->easy.reset(curl().easy_init());
    state_->multi.reset(curl().multi_init());
    if (state_->easy == nullptr || state_->multi == nullptr) {
        set_last_error(kInternalError);
        return false;
    }
    return true;
}

bool HttpExchange::send(const wchar_t* header, const std::string& body) {
    State& state = *state_;
    Network network = read_network(state.server());
    if (network.address.empty()) {
        set_last_error(kNameNotResolved);
        return false;
    }
    state.body = body;
    state.prepare(header, std::move(network));
    if (curl().multi_add(state.multi.get(), state.easy.get()) != CURLM_OK) {
        set_last_error(kInternalError);
        return false;
    }
    const auto is_sent = [&] {
        return state.head_done || (state.connected && std::cmp_equal(state.sent, state.body.size()));
    };
    // While it connects, libcurl's own connect timeout ends it first; afterwards the send timeout holds for each piece.
    state.drive(state.connect_timeout + state.send_timeout, [&] { return state.connected; });
    state.drive(state.send_timeout, is_sent);
    state.usable = is_sent();  // a fault after that is reported by `receive`
    return state.usable || state.fail();
}

// Without effect: `receive` fails after a refused certificate, as it does with WinHTTP.
bool HttpExchange::set_security_flags(std::uint32_t) {
    return true;
}

bool HttpExchange::receive() {
    State& state = *state_;
    if (!state.usable) {
        set_last_error(kErrorIncorrectHandleState);
        return false;
    }
    state.drive(state.receive_timeout, [&] { return state.head_done; });
    return state.head_done || state.fail();
}

bool HttpExchange::query_status(std::wstring& status) {
    status = std::to_wstring(state_->status);
    return true;
}

bool HttpExchange::query_available(std::uint32_t& size) {
    State& state = *state_;
    const auto waiting = [&] { return state.arrived.size() - state.taken; };
    if (waiting() == 0 && state.paused) {
        state.paused = false;
        curl().easy_pause(state.easy.get(), CURLPAUSE_CONT);
    }
    state.drive(state.receive_timeout, [&] { return waiting() > 0; });
    size = static_cast<std::uint32_t>(std::min(waiting(), kPiece));
    return size > 0 || state.result == CURLE_OK || state.fail();
}

bool HttpExchange::read(char* buffer, std::uint32_t size, std::uint32_t& count) {
    State& state = *state_;
    count = 0;
    std::uint32_t available = 0;
    if (!query_available(available)) {
        return false;
    }
    count = static_cast<std::uint32_t>(state.arrived.copy(buffer, size, state.taken));
    state.taken += count;
    if (state.taken == state.arrived.size()) {
        state.arrived.clear();
        state.taken = 0;
    }
    return true;
}

bool is_online() {
    return read_network().online;
}

}  // namespace platform
