// What only the Windows side shows of an exchange and of a digest: which calls the system gets, with what, what is
// closed after a failed step, and that its error is kept.
#include <windows.h>

#include <gtest/gtest.h>
#include <wincrypt.h>

#include "platform/digest.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/windows/internet_libraries.h"
#include "support/machine.h"
#include "windows/recorded_calls.h"

namespace platform {
namespace {

#define LATE_FAKE(library, slot, function) \
    LateHook(#library, #function, library().slot, recorder<false>(library().slot, [] { return #function; }))

// Replaces a function of a library that is loaded late, until the end of a scope. It has to be the one of that name.
class LateHook {
public:
    template <class Function>
    LateHook(const char* library, const char* name, Function*& slot, std::type_identity_t<Function>* replacement)
        : slot_(reinterpret_cast<void**>(&slot)), truth_(*slot_) {
        const HMODULE module = ::GetModuleHandleA(library);
        EXPECT_EQ(truth_, reinterpret_cast<void*>(::GetProcAddress(module, name))) << name;
        *slot_ = reinterpret_cast<void*>(replacement);
    }
    ~LateHook() { *slot_ = truth_; }
    LateHook(const LateHook&) = delete;
    LateHook& operator=(const LateHook&) = delete;

private:
    void** slot_;
    void* truth_;
};

using Closing = std::vector<std::pair<std::size_t, std::string>>;  // the step that opens, the call that closes

// `action` gives 0 or the error. Each of its steps is made to fail in turn.
void expect_calls(std::uint32_t (*action)(), const Calls& steps, const Closing& closing) {
    for (failing = 0; failing <= steps.size(); ++failing) {
        calls.clear();
        EXPECT_EQ(action(), failing == 0 ? 0 : kFailure) << failing;
        Calls expected = steps;
        expected.resize(failing == 0 ? steps.size() : failing);
        for (const auto& [opening, close] : closing) {
            expected.insert(expected.end(), failing == 0 || failing > opening ? 1 : 0, close);
        }
        EXPECT_EQ(calls, expected) << failing;
    }
}

template <bool secure>
std::uint32_t exchange() {
    HttpExchange http;
    std::wstring status;
    std::uint32_t number = 0;
    char buffer[5] = {};
    const bool done = http.open(L"agent") && http.set_timeouts(1, 2, 3, 4) && http.connect(L"host", 443) &&
                      http.open_request(secure ? L"POST" : L"GET", L"/path", secure) &&
                      http.send(secure ? L"Type: a" : nullptr, secure ? "body" : "") &&
                      http.set_security_flags(0x3300) && http.receive() && http.query_status(status) &&
                      http.query_available(number) && http.read(buffer, 5, number);
    return done ? 0 : last_error();
}

TEST(HttpExchange, MakesOneCallForEachStepAndClosesFromTheInside) {
    const LateHook hooks[] = {LATE_FAKE(winhttp, open, WinHttpOpen),
                              LATE_FAKE(winhttp, set_timeouts, WinHttpSetTimeouts),
                              LATE_FAKE(winhttp, connect, WinHttpConnect),
                              LATE_FAKE(winhttp, open_request, WinHttpOpenRequest),
                              LATE_FAKE(winhttp, send_request, WinHttpSendRequest),
                              LATE_FAKE(winhttp, set_option, WinHttpSetOption),
                              LATE_FAKE(winhttp, receive_response, WinHttpReceiveResponse),
                              LATE_FAKE(winhttp, query_headers, WinHttpQueryHeaders),
                              LATE_FAKE(winhttp, query_data_available, WinHttpQueryDataAvailable),
                              LATE_FAKE(winhttp, read_data, WinHttpReadData),
                              LATE_FAKE(winhttp, close_handle, WinHttpCloseHandle),
                              LATE_FAKE(wininet, get_connected_state, InternetGetConnectedState)};
    Calls steps = {"WinHttpOpen agent 0 null null 0",
                   "WinHttpSetTimeouts 1 1 2 3 4",
                   "WinHttpConnect 1 host 1bb 0",
                   "WinHttpOpenRequest 3 POST /path null null null 800000",
                   "WinHttpSendRequest 4 Type: a ffffffff 79646f62 4 4 null",
                   "WinHttpSetOption 4 1f 3300 4",
                   "WinHttpReceiveResponse 4 null",
                   "WinHttpQueryHeaders 4 13 null 0 10 null",
                   "WinHttpQueryDataAvailable 4 0",
                   "WinHttpReadData 4 0 5 0"};
    const Closing closing = {{4, "WinHttpCloseHandle 4"}, {3, "WinHttpCloseHandle 3"}, {1, "WinHttpCloseHandle 1"}};
    expect_calls(exchange<true>, steps, closing);
    steps[3] = "WinHttpOpenRequest 3 GET /path null null null 0";
    steps[4] = "WinHttpSendRequest 4 null 0 null 0 0 null";
    expect_calls(exchange<false>, steps, closing);
    expect_calls([] { return is_online() ? 0 : last_error(); }, {"InternetGetConnectedState 0 0"}, {});
}

std::string path;

std::uint32_t hash_file() {
    const DigestResult result = md5_of_file(path);
    return result.digest ? 0 : result.error;
}

TEST(Md5, HashesAFileAndReleasesTheHashBeforeTheProvider) {
    const TestMachine machine;
    path = machine.bin_folder() + "\xC3\x84 \xE2\x82\xAC";
    EXPECT_EQ(hash_file(), DWORD(ERROR_FILE_NOT_FOUND));
    write_text(path, "abc");
    const File other = open_file(path, "r+");
    const ImportHook hooks[] = {REAL(CreateFileW),          REAL(ReadFile),         REAL(CloseHandle),
                                REAL(CryptAcquireContextW), REAL(CryptCreateHash),  REAL(CryptHashData),
                                REAL(CryptGetHashParam),    REAL(CryptDestroyHash), REAL(CryptReleaseContext)};
    const Calls steps = {"CreateFileW * 80000000 3 null 3 80 null",
                         "CryptAcquireContextW * null null 1 f0000000",
                         "CryptCreateHash * 8003 null 0 *",
                         "ReadFile * * 400 * null",
                         "CryptHashData * * 3 0",
                         "ReadFile * * 400 * null",
                         "CryptGetHashParam * 2 * * 0"};
    expect_calls(hash_file, steps, {{3, "CryptDestroyHash *"}, {2, "CryptReleaseContext * 0"}, {1, "CloseHandle *"}});
}

}  // namespace
}  // namespace platform
