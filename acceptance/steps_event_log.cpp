// Group 4: the product's entries in the event log.
#include <windows.h>

#include "common/log.h"
#include "event_log_reader.h"
#include "kit.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "steps_event.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kSource[] = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Zorvalis";

struct LibraryCloser {
    using pointer = HMODULE;
    void operator()(HMODULE library) const { ::FreeLibrary(library); }
};

}  // namespace

// Event Viewer takes an entry's text from the file that the source names.
void TextOfMessageFile(Findings& findings) {
    wchar_t path[MAX_PATH] = {};
    DWORD size = sizeof path;
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, kSource, L"EventMessageFile", RRF_RT_REG_SZ, nullptr,
                                          path, &size);  // expands variables in it
    if (!findings.Expect(
            status == ERROR_SUCCESS,
            "the source \"Zorvalis\" names a message file: " +
                (status == ERROR_SUCCESS ? platform::to_utf8(path) : ErrorText(static_cast<unsigned long>(status))))) {
        return;
    }
    const std::unique_ptr<HMODULE, LibraryCloser> file(
        ::LoadLibraryExW(path, nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    if (file == nullptr) {
        findings.Fail("the file can be opened: " + ErrorText(::GetLastError()));
    }
    wchar_t product[] = L"Zorvalis";
    wchar_t words[] = L" [WmiEventManager] WMI 1 ( DGPU )";
    wchar_t* texts[] = {product, words};
    wchar_t message[200] = {};
    ::FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, file.get(), 0, 0, message, 200,
                     reinterpret_cast<va_list*>(texts));
    findings.Expect(std::wstring_view(message) == L"Zorvalis:  [WmiEventManager] WMI 1 ( DGPU )\r\n",
                    "it has the text of entries with the number 0: " + platform::to_utf8(message));
}

void EntriesOfEventLog(Findings& findings) {
    const std::string mark =
        "zorv-acceptance " + std::to_string(::GetCurrentProcessId()) + "." + std::to_string(::GetTickCount64());
    const struct {
        std::string text;
        std::uint16_t type;
        int level;
    } cases[] = {{mark + " information", kInformation, 4}, {mark + " warning \u00fc\u20ac", kWarning, 3}};
    for (const auto& one : cases) {
        ReportServiceEvent(platform::to_wide(one.text).c_str(), one.type);
    }
    for (const auto& one : cases) {
        std::vector<LogEntry> entries;
        unsigned long error = 0;
        Until(5, [&] {
            entries = EntriesWith(one.text, error);
            return !entries.empty() || error != 0;
        });
        if (entries.empty() && IsWine()) {
            findings.Impossible("the log takes no entries; EvtQuery says " + ErrorText(error));
        }
        findings.Expect(error == 0, "the event log can be asked" + (error == 0 ? "" : ": " + ErrorText(error)));
        if (!findings.Expect(entries.size() == 1, "one entry is in the log, not " + std::to_string(entries.size()))) {
            continue;
        }
        const LogEntry& entry = entries.front();
        findings.ExpectNumber(entry.level, one.level, "its level");
        findings.ExpectNumber(entry.number, 0, "its number");
        findings.ExpectText(entry.text + (entry.problem == 0 ? "" : ErrorText(entry.problem)), "Zorvalis: " + one.text,
                            "its text in Event Viewer");
    }
    findings.Saw("these two entries stay in the log");
}

}  // namespace zorvalis::acceptance
