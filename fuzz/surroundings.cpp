// The surroundings, and the functions of the platform floor that they replace (namespace platform, below).
#include "surroundings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <utility>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/http.h"
#include "platform/library.h"

namespace {

constexpr std::uint32_t kConnectionError = 12030;
constexpr std::size_t kPiece = 64;  // bytes of one read; small, so that a NUL cuts one piece and others follow

std::vector<ServerAnswer> answers;
std::size_t next = 0;

std::int32_t Initialize() {
    return 0;
}

void Shutdown() {}

void ChassisTypes(wchar_t* buffer, std::uint8_t) {
    std::wcscpy(buffer, L"Notebook");
}

void ModelName(wchar_t* buffer, std::uint8_t) {
    std::wcscpy(buffer, L"Zorv \"14\"");
}

struct Export {
    std::string_view name;
    void* function;
};

const std::array<Export, 4> kExports = {{
    {"InitializeWinIo", reinterpret_cast<void*>(Initialize)},
    {"ShutdownWinIo", reinterpret_cast<void*>(Shutdown)},
    {"WMIGetSystemChassisTypes", reinterpret_cast<void*>(ChassisTypes)},
    {"WMIGetModelName", reinterpret_cast<void*>(ModelName)},
}};

}  // namespace

void SetAnswers(std::vector<ServerAnswer> list) {
    answers = std::move(list);
    next = 0;
}

TestMachine& FuzzMachine() {
    struct Machine : TestMachine {
        Machine() {
            ready();
            platform::set_clock({0, 0.0});
        }
    };
    static Machine machine;
    return machine;
}

void Finding(const char* what) {
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

namespace platform {

struct HttpExchange::State {
    const ServerAnswer* answer = nullptr;
    std::size_t taken = 0;
};

HttpExchange::HttpExchange() : state_(std::make_unique<State>()) {}

HttpExchange::~HttpExchange() = default;

bool HttpExchange::open(const wchar_t*) {
    return true;
}

bool HttpExchange::set_timeouts(std::int32_t, std::int32_t, std::int32_t, std::int32_t) {
    return true;
}

bool HttpExchange::connect(const std::wstring&, std::uint16_t) {
    return true;
}

bool HttpExchange::open_request(const wchar_t*, const std::wstring&, bool) {
    return true;
}

bool HttpExchange::send(const wchar_t*, const std::string&) {
    return true;
}

bool HttpExchange::set_security_flags(std::uint32_t) {
    return true;
}

bool HttpExchange::receive() {
    if (next > answers.size()) {
        Finding("an exchange after the connection was lost");
    }
    if (next++ == answers.size()) {
        set_last_error(kConnectionError);
        return false;
    }
    state_->answer = &answers[next - 1];
    return true;
}

bool HttpExchange::query_status(std::wstring& status) {
    status = state_->answer->status;
    return true;
}

bool HttpExchange::query_available(std::uint32_t& size) {
    size = static_cast<std::uint32_t>(std::min(state_->answer->body.size() - state_->taken, kPiece));
    return true;
}

bool HttpExchange::read(char* buffer, std::uint32_t size, std::uint32_t& count) {
    count = static_cast<std::uint32_t>(state_->answer->body.copy(buffer, size, state_->taken));
    state_->taken += count;
    return true;
}

bool is_online() {
    return true;
}

SharedLibrary::SharedLibrary(const wchar_t*) : handle_(nullptr) {}

SharedLibrary::~SharedLibrary() = default;

void* SharedLibrary::symbol(const char* name) const {
    const auto* const found =
        std::find_if(kExports.begin(), kExports.end(), [&](const Export& one) { return one.name == name; });
    return found != kExports.end() ? found->function : nullptr;
}

}  // namespace platform
