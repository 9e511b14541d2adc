// The exchange by WinHTTP. Each function is one of its calls, whose last error is left as it is.
#include "platform/http.h"

#include "platform/windows/handles.h"
#include "platform/windows/internet_libraries.h"

namespace platform {
namespace {

void close_internet(HINTERNET handle) {
    winhttp().close_handle(handle);
}

using OwnedInternet = Owned<close_internet, HINTERNET>;

}  // namespace

// Members are closed from the last to the first: request, connection, session.
struct HttpExchange::State {
    OwnedInternet session;
    OwnedInternet connection;
    OwnedInternet request;
};

HttpExchange::HttpExchange() : state_(new State) {}

HttpExchange::~HttpExchange() = default;

bool HttpExchange::open(const wchar_t* user_agent) {
    if (winhttp().open == nullptr) {
        return false;
    }
    state_->session.reset(winhttp().open(user_agent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                         WINHTTP_NO_PROXY_BYPASS, 0));
    return state_->session != nullptr;
}

bool HttpExchange::set_timeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) {
    return winhttp().set_timeouts(state_->session.get(), resolve, connect, send, receive) != FALSE;
}

bool HttpExchange::connect(const std::wstring& server, std::uint16_t port) {
    state_->connection.reset(winhttp().connect(state_->session.get(), server.c_str(), port, 0));
    return state_->connection != nullptr;
}

bool HttpExchange::open_request(const wchar_t* verb, const std::wstring& path, bool secure) {
    state_->request.reset(winhttp().open_request(state_->connection.get(), verb, path.c_str(), nullptr,
                                                 WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                 secure ? WINHTTP_FLAG_SECURE : 0));
    return state_->request != nullptr;
}

bool HttpExchange::send(const wchar_t* header, const std::string& body) {
    const DWORD header_length = header == nullptr ? 0 : static_cast<DWORD>(-1);  // -1: up to its terminator
    const DWORD length = static_cast<DWORD>(body.size());
    void* const data = body.empty() ? WINHTTP_NO_REQUEST_DATA : const_cast<char*>(body.data());  // only read
    return winhttp().send_request(state_->request.get(), header, header_length, data, length, length, 0) != FALSE;
}

bool HttpExchange::set_security_flags(std::uint32_t flags) {
    DWORD value = flags;
    return winhttp().set_option(state_->request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &value, sizeof value) != FALSE;
}

bool HttpExchange::receive() {
    return winhttp().receive_response(state_->request.get(), nullptr) != FALSE;
}

bool HttpExchange::query_status(std::wstring& status) {
    wchar_t text[8] = {};
    DWORD size = sizeof text;
    if (!winhttp().query_headers(state_->request.get(), WINHTTP_QUERY_STATUS_CODE, WINHTTP_HEADER_NAME_BY_INDEX, text,
                                 &size, WINHTTP_NO_HEADER_INDEX)) {
        return false;
    }
    status = text;
    return true;
}

bool HttpExchange::query_available(std::uint32_t& size) {
    DWORD available = 0;
    const bool done = winhttp().query_data_available(state_->request.get(), &available) != FALSE;
    size = available;
    return done;
}

bool HttpExchange::read(char* buffer, std::uint32_t size, std::uint32_t& count) {
    DWORD read = 0;
    const bool done = winhttp().read_data(state_->request.get(), buffer, size, &read) != FALSE;
    count = read;
    return done;
}

// Asks WinINet, so that a machine without network never loads WinHTTP.
bool is_online() {
    DWORD flags = 0;
    auto* const get_connected_state = wininet().get_connected_state;
    return get_connected_state != nullptr && get_connected_state(&flags, 0) != FALSE;
}

}  // namespace platform
