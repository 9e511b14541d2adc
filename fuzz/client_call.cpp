// An application's call in JSON (FuzzClientCall): any text must be answered in the documented form, or not at all, and
// nothing may be written behind the client's buffer.
#include <array>
#include <cstdio>
#include <cwchar>

#include "base/json.h"
#include "base/text.h"
#include "client/system_info.h"
#include "common/wide_to_utf8.h"
#include "jobs/job_manager.h"
#include "platform/machine.h"
#include "platform/text.h"
#include "surroundings.h"

using namespace zorvalis;

namespace {

// The bytes as the wide text that arrives from a client. When they are not UTF-8, each byte becomes a character.
std::wstring Arrived(std::string_view bytes) {
    const std::string text(bytes.substr(0, bytes.find('\0')));
    std::wstring wide(text.size() + 1, L'\0');
    const int length = platform::multi_byte_to_wide(platform::kCodePageUtf8, text.c_str(), -1, wide.data(),
                                                    static_cast<int>(wide.size()));
    return length > 0 ? wide.substr(0, length - 1) : WidenBytes(text);
}

// 1 for success, 0 for an error, -1 for no answer; any other form is a finding.
std::int32_t Judge(const std::string& text) {
    if (text.empty()) {
        return -1;
    }
    const Json answer = ParseJson(text);
    const bool whole = answer.size() == 4 && answer["function"].is_number_integer() &&
                       answer["version"].is_number_integer() && answer["parameter"].is_string();
    if (!whole || DumpJson(answer) != text) {
        Finding("an answer of another form");
    }
    if (answer["status"] == "Success") {
        return 1;
    }
    return answer["status"] == "Error" ? 0 : (Finding("another status"), 0);
}

}  // namespace

std::int32_t FuzzClientCall(std::string_view bytes) {
    FuzzMachine();
    std::remove((platform::machine_folder() + "/eventlog.jsonl").c_str());
    constexpr std::int32_t kSize = 300;
    std::array<wchar_t, kSize + 1> output{};
    output.back() = L'#';  // behind the buffer: must stay
    const std::int32_t result = Attempt([&] {
        SystemInfoClass().BigDataServiceCall(Arrived(bytes).c_str(), output.data(), kSize);
        return Judge(WideToUtf8(output.data()));
    });
    if (result == kRaised) {
        JobLock().release();  // a call that throws leaves it held
    }
    if (output.back() != L'#') {
        Finding("an answer beyond the end of the buffer");
    }
    return result;
}
