// Group 4: what a trace session of Windows receives from the product.
#include "steps_event.h"

// Before windows.h, whose macros have the names of its controls.
#include "service/service_base.h"

#include <windows.h>

#include "common/log.h"
#include "common/trace_provider.h"
#include "kit.h"
#include "process.h"
#include "service/service_install.h"
#include "trace_session.h"

namespace zorvalis::acceptance {
namespace {

constexpr platform::Guid kMessages = {0x57b959a4, 0xc260, 0x3299, {0x33, 0xa3, 0x27, 0x53, 0xb4, 0x16, 0xe0, 0xa4}};
constexpr platform::Guid kServiceEvents = {
    0xBE2E880E, 0xF79F, 0x4C30, {0x9C, 0x95, 0x09, 0xF0, 0x03, 0xA0, 0xA7, 0xEA}};

bool Need(Findings& findings, unsigned long error, const std::string& call) {
    return findings.Expect(error == ERROR_SUCCESS, call + (error == ERROR_SUCCESS ? "" : ": " + ErrorText(error)));
}

// Wine's sessions start and end but take nothing, which shows when they are read.
std::vector<TraceEvent> Received(Findings& findings, TraceSession& session) {
    std::vector<TraceEvent> events;
    const unsigned long error = session.Read(events);
    if (events.empty() && IsWine()) {
        findings.Impossible("the session left nothing that can be read: " + ErrorText(error));
    }
    Need(findings, error, "the session's file is read");
    findings.Saw(std::to_string(events.size()) + " events");
    return events;
}

// The service may be at work, too. Those that are left out are told, lest the kit only reads them wrongly.
void OfThisProcess(Findings& findings, std::vector<TraceEvent>& events) {
    std::erase_if(events, [&](const TraceEvent& event) {
        const bool isOther = event.process != ::GetCurrentProcessId();
        if (isOther && findings.lines().size() < 20) {
            findings.Saw("left out: number " + std::to_string(event.number) + " of process " +
                         std::to_string(event.process) + ", " + std::to_string(event.before) + " bytes before \"" +
                         event.text.substr(0, 60) + "\"");
        }
        return isOther;
    });
}

void Start(Findings& findings, TraceSession& session, bool numbered) {
    const unsigned long error = session.Start(numbered);
    if (error != ERROR_SUCCESS) {
        findings.Fail("a session is started: " + ErrorText(error));
    }
}

// What TakesBothKinds has logged while the session asked for it.
void ExpectBothKinds(Findings& findings, TraceSession& session) {
    std::vector<TraceEvent> events = Received(findings, session);
    OfThisProcess(findings, events);
    const struct {
        std::uint16_t number;
        std::string text;
    } wanted[] = {{10, "narrow"},
                  {11, "wide \u00fc\u20ac"},
                  {10, "more than asked for"},
                  {10, std::string(3000, 'x') + " end"},
                  {10, "registered again"}};
    findings.ExpectNumber(static_cast<long long>(events.size()), static_cast<long long>(std::size(wanted)),
                          "only what the session asked for has arrived of this process");
    for (std::size_t i = 0; i < events.size() && i < std::size(wanted); ++i) {
        const TraceEvent& event = events[i];
        const std::string name = "\"" + wanted[i].text.substr(0, 30) + "\"";
        const bool same = event.text == wanted[i].text;
        findings.Expect(
            same, name + " arrives as it was logged" + (same ? "" : ", not as \"" + event.text.substr(0, 100) + "\""));
        findings.ExpectNumber(event.number, wanted[i].number, name + " has its number");
        findings.Expect(event.isMessage && event.source == kMessages, name + " has the GUID of the messages");
        findings.Saw(std::to_string(event.before) + " bytes stand in front of the text");
    }
}

void TakesBothKinds(Findings& findings, bool numbered) {
    TraceSession session;
    Start(findings, session, numbered);
    struct Registered {
        Registered() { StartTrace(); }
        ~Registered() { StopTrace(); }
    };
    {
        const Registered registered;
        LogMessage("before any session");
        const unsigned long first = session.Enable(kTraceProvider, 4, 1);
        LogMessage("narrow");
        LogMessageW(L"wide \u00fc\u20ac");
        const unsigned long lower = session.Enable(kTraceProvider, 3, 1);
        LogMessage("at level 3");
        const unsigned long other = session.Enable(kTraceProvider, 4, 2);
        LogMessage("without flag 1");
        const unsigned long again = session.Enable(kTraceProvider, 5, 3);
        LogMessage("more than asked for");
        const unsigned long off = session.Disable(kTraceProvider);
        LogMessage("disabled");
        const unsigned long last = session.Enable(kTraceProvider, 4, 1);
        LogMessage(std::string(3000, 'x') + " end");
        if (!IsWine()) {
            Need(findings, first, "enabled at level 4 with flag 1 while the program runs");
            Need(findings, lower, "enabled at level 3");
            Need(findings, other, "enabled with flag 2");
            Need(findings, again, "enabled at level 5 with both flags");
            Need(findings, off, "disabled");
            Need(findings, last, "enabled again");
        }
    }
    LogMessage("after the end of the provider");
    {
        const Registered registered;  // the session is there already when the provider comes
        LogMessage("registered again");
    }
    ExpectBothKinds(findings, session);
}

}  // namespace

void TraceOfNumberedSession(Findings& findings) {
    TakesBothKinds(findings, true);
}

// As the tools of Windows make a session that nobody asked to number its messages.
void TraceOfPlainSession(Findings& findings) {
    TakesBothKinds(findings, false);
}

void TraceOfInstalledProgram(Findings& findings) {
    TraceSession session;
    Start(findings, session, true);
    Need(findings, session.Enable(kTraceProvider, 4, 1), "enabled before the program runs");
    const Ended pass = RunProgram(Quoted(ProgramFolder() + "\\ZorvalisWinService.exe") + " -j0", 90);
    findings.Expect(pass.started && pass.inTime && pass.code == 0,
                    "a pass of the installed program runs, and ends with " + std::to_string(pass.code));
    std::vector<TraceEvent> lines;
    std::uint32_t process = 0;
    for (const TraceEvent& event : Received(findings, session)) {
        if (event.text == "job0 <---") {
            process = event.process;
            lines.clear();
        }
        if (process != 0 && event.process == process) {
            lines.push_back(event);
        }
    }
    findings.Expect(!lines.empty(), "the pass's first line arrives");
    findings.Expect(!lines.empty() && lines.back().text == "job0  --->", "so does its last");
    findings.Saw(std::to_string(lines.size()) + " lines of the pass, in process " + std::to_string(process));
}

void TextsOfServiceEvents(Findings& findings) {
    TraceSession session;
    Start(findings, session, false);
    Need(findings, session.Enable(kServiceEvents, 4, 0xFFFFFFFF), "the session asks for the service's own events");
    {
        CServiceBase service(kServiceName, true, true, false);
        service.WriteEventLogEntry(L"service \u00fc\u20ac", 2);
        service.WriteEventLogEntry(L"above the session's level", 5);
    }
    std::vector<TraceEvent> events = Received(findings, session);
    OfThisProcess(findings, events);
    findings.ExpectNumber(static_cast<long long>(events.size()), 1, "one text arrives, the other is above the level");
    if (!events.empty()) {
        findings.ExpectText(events[0].text, "service \u00fc\u20ac", "it is the text that was written");
        findings.ExpectNumber(events[0].level, 2, "with its level");
        findings.Expect(!events[0].isMessage && events[0].source == kServiceEvents, "and the provider's GUID");
    }
}

}  // namespace zorvalis::acceptance
