// Group 4: hardware events by WMI, from Windows' own providers and from a stand-in for the firmware's.
#include <windows.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <set>

#include "common/registry.h"
#include "common/trace_provider.h"
#include "event_log_reader.h"
#include "events/event_sink.h"
#include "kit.h"
#include "platform/event_subscription.h"
#include "platform/text.h"
#include "polling.h"
#include "process.h"
#include "product_service.h"
#include "saved_value.h"
#include "status_text.h"
#include "steps_event.h"
#include "trace_session.h"
#include "wmi_stand_in.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kProductQuery[] = L"SELECT * FROM ZorvQelWmiEvent";

// Keeps what arrives; `next` gets it too, the product's own receiver.
class Recorder : public platform::EventReceiver {
public:
    struct Event {
        std::set<std::wstring> names;
        std::map<std::wstring, std::int32_t> integers;
        std::wstring pending;  // the product's registry value after `next` had the event
    };

    explicit Recorder(std::shared_ptr<platform::EventReceiver> next = nullptr) : next_(std::move(next)) {}

    void Indicate(const platform::EventObject& object) override {
        Event event;
        std::vector<std::wstring> names;
        object.property_names(names);
        for (const std::wstring& name : names) {
            std::int32_t number = 0;
            event.names.insert(name);
            if (object.integer(name, number)) {
                event.integers[name] = number;
            }
        }
        if (next_ != nullptr) {
            next_->Indicate(object);
            event.pending = ReadRegDword(kLocalMachine, kProductKey, kPendingEvent);
        }
        const std::lock_guard guard(mutex_);
        events_.push_back(std::move(event));
    }

    void SetStatus(std::int32_t flags) override {
        const std::lock_guard guard(mutex_);
        statuses_.push_back(flags);
    }

    std::vector<Event> events() const {
        const std::lock_guard guard(mutex_);
        return events_;
    }

    std::vector<std::int32_t> statuses() const {
        const std::lock_guard guard(mutex_);
        return statuses_;
    }

    // The numbers in `property`, 0 where it is missing.
    std::vector<std::int32_t> Numbers(const std::wstring& property) const {
        std::vector<std::int32_t> numbers;
        for (const Event& event : events()) {
            const auto found = event.integers.find(property);
            numbers.push_back(found == event.integers.end() ? 0 : found->second);
        }
        return numbers;
    }

private:
    const std::shared_ptr<platform::EventReceiver> next_;
    mutable std::mutex mutex_;
    std::vector<Event> events_;
    std::vector<std::int32_t> statuses_;
};

std::string Listed(const std::vector<std::int32_t>& numbers) {
    std::string text;
    for (const std::int32_t number : numbers) {
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    }
    return text;
}

// Without the service, whose receiver would take the kit's events too. It runs again with the end of the scope.
class StoppedMeanwhile {
public:
    explicit StoppedMeanwhile(Findings& findings) {
        const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
        const auto status = StatusOf(service.get());
        runs_ = status && status->dwCurrentState != SERVICE_STOPPED;
        if (runs_) {
            StopProduct(findings);
        }
    }
    ~StoppedMeanwhile() {
        if (runs_) {
            const OwnedService service = OpenProduct(SERVICE_START);
            ::StartServiceW(service.get(), 0, nullptr);
        }
    }
    StoppedMeanwhile(const StoppedMeanwhile&) = delete;
    StoppedMeanwhile& operator=(const StoppedMeanwhile&) = delete;

private:
    bool runs_ = false;
};

// The product's subscription is on.
void NeedStarted(Findings& findings, const platform::EventSubscription& subscription) {
    if (subscription.status >= 0) {
        return;
    }
    const std::string what = "the subscription is made: step " + std::to_string(static_cast<int>(subscription.step)) +
                             " says " + StatusText(subscription.status);
    if (IsWine()) {
        findings.Impossible(what);
    }
    findings.Fail(what);
}

}  // namespace

void RestoreWmi() {
    WmiStandIn::Remove();
    TraceSession::Remove();
    for (const wchar_t* value : {kPendingEvent, L"MainSwitch"}) {
        SavedValue::Restore(kProductKey, value);
    }
}

void EventOfWindows(Findings& findings) {
    const auto recorder = std::make_shared<Recorder>();
    const auto own = static_cast<std::int32_t>(::GetCurrentProcessId());
    const auto ofThisProcess = [&] {
        const std::vector<std::int32_t> parents = recorder->Numbers(L"ParentProcessID");
        return std::count(parents.begin(), parents.end(), own);
    };
    {
        const platform::EventSubscription subscription(true, L"ROOT\\CIMV2", L"SELECT * FROM Win32_ProcessStartTrace",
                                                       recorder);
        NeedStarted(findings, subscription);
        const bool arrived = Until(30, [&] {
            RunProgram(Quoted(KitFolder() + "\\zorv-acceptance.exe") + " --step none", 10);
            return ofThisProcess() != 0;
        });
        if (!arrived && IsWine()) {
            findings.Impossible("the subscription is accepted, and no event comes");
        }
        findings.Expect(arrived, "the start of a program arrives, with the number of the process that started it");
    }
    for (const Recorder::Event& event : recorder->events()) {
        const auto parent = event.integers.find(L"ParentProcessID");
        if (parent != event.integers.end() && parent->second == own) {
            findings.Expect(event.names.contains(L"ProcessName"), "the event's properties are listed");
            findings.Expect(!event.integers.contains(L"ProcessName"), "one that is a text reads as no number");
            break;
        }
    }
    const std::vector<std::int32_t> statuses = recorder->statuses();
    findings.Saw("WMI reported the states " + Listed(statuses));
    // A call that has begun may still be on its way.
    Until(2, [] { return false; });
    const auto before = ofThisProcess();
    RunProgram(Quoted(KitFolder() + "\\zorv-acceptance.exe") + " --step none", 10);
    Until(5, [&] { return ofThisProcess() != before; });
    findings.Expect(ofThisProcess() == before, "after the subscription's end nothing arrives");
}

void SetUpWithoutClass(Findings& findings) {
    NeedNoClass(findings);
    const auto recorder = std::make_shared<Recorder>();
    const platform::EventSubscription subscription(true, L"ROOT\\WMI", kProductQuery, recorder);
    const std::string what =
        "step " + std::to_string(static_cast<int>(subscription.step)) + " says " + StatusText(subscription.status);
    if (IsWine()) {  // fails for want of the apartment that WMI would call from
        findings.Impossible(what);
    }
    findings.Saw(what);
    findings.Expect(subscription.step == platform::EventStep::start, "the set-up comes to its last step");
    const bool told = subscription.status < 0 || Until(20, [&] { return !recorder->statuses().empty(); });
    findings.Expect(told, "which fails, or WMI ends the subscription at once");
    findings.Saw("WMI reported the states " + Listed(recorder->statuses()));
    findings.Expect(recorder->events().empty(), "nothing arrives");
}

void EventsOfStandInClass(Findings& findings) {
    const StoppedMeanwhile stopped(findings);
    WmiStandIn standIn(findings);
    const SavedValue pending(kProductKey, kPendingEvent);
    const auto recorder = std::make_shared<Recorder>(std::make_shared<EventSink>(154, 155));
    const platform::EventSubscription subscription(true, L"ROOT\\WMI", kProductQuery, recorder);
    NeedStarted(findings, subscription);
    // WMI needs a moment before it takes the provider's events for the subscription.
    std::int32_t raised = 0;
    const auto hasCome = [&] { return !recorder->events().empty(); };
    const bool first = Until(30, [&] {
        raised = standIn.Raise({1});
        return raised < 0 || Until(1, hasCome);
    });
    findings.Expect(raised >= 0, "the provider's events are taken: " + StatusText(raised));
    if (!findings.Expect(first && hasCome(), "an event arrives by the product's query")) {
        return;
    }
    Until(2, [] { return false; });  // those of the same number that are still on their way
    const std::size_t begin = recorder->events().size();
    WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, 0);
    const std::vector<std::int32_t> sent = {153, 155, 156, 154, -1};
    standIn.Raise({153, 155, 156});
    standIn.Raise({154, -1});
    Until(10, [&] { return recorder->events().size() >= begin + sent.size(); });
    const std::vector<Recorder::Event> events = recorder->events();
    std::vector<std::int32_t> numbers = recorder->Numbers(L"EventID");
    numbers.erase(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(begin));
    findings.ExpectText(Listed(numbers), Listed(sent), "several events in one call arrive each for itself, in order");
    const char* const wanted[] = {"0", "155", "155", "154", "154"};
    for (std::size_t i = 0; i < std::size(wanted) && begin + i < events.size(); ++i) {
        const Recorder::Event& event = events[begin + i];
        findings.ExpectText(platform::to_utf8(event.pending), wanted[i],
                            "the registry after the number " + std::to_string(sent[i]));
        if (i == 0) {
            findings.Expect(event.names.contains(L"Word") && event.names.contains(L"Nothing"), "all names are listed");
            findings.Expect(event.integers.contains(L"Small") && event.integers.at(L"Small") == 7,
                            "a property of 8 bits reads as its number");
            findings.Expect(!event.integers.contains(L"Large") && !event.integers.contains(L"Word"),
                            "a number of more than 32 bits and a text read as none");
            // How Windows turns "no value" into a number is its own affair; the report says which way.
            findings.Saw(
                std::string("a property without a value reads as ") +
                (event.integers.contains(L"Nothing") ? std::to_string(event.integers.at(L"Nothing")) : "none"));
        }
    }
    const std::size_t before = recorder->events().size();
    for (int i = 0; i < 20; ++i) {
        standIn.Raise(std::vector<std::int32_t>(100, 1000 + i));
    }
    Until(30, [&] { return recorder->events().size() >= before + 2000; });
    findings.ExpectNumber(static_cast<long long>(recorder->events().size() - before), 2000, "2,000 events arrive");
}

void EventsAtService(Findings& findings) {
    NeedRunnable(findings);
    const SavedValue mainSwitch(kProductKey, L"MainSwitch");
    const SavedValue pending(kProductKey, kPendingEvent);
    StopProduct(findings);
    WmiStandIn standIn(findings);
    WriteRegString(kLocalMachine, kProductKey, L"MainSwitch", L"1");
    const struct {
        std::int32_t number;
        std::string text;
    } cases[] = {{154, " [WmiEventManager] WMI 1 ( DGPU )"}, {155, " [WmiEventManager] WMI 2 ( connector )"}};
    unsigned long error = 0;
    std::int32_t raised = 0;
    TraceSession session;
    session.Start(true);
    session.Enable(kTraceProvider, 4, 1);
    StartProduct(findings);
    int limit = 170;  // the receiver begins two minutes after the service
    for (const auto& one : cases) {
        const std::size_t before = EntriesWith(one.text, error).size();
        auto last = std::chrono::steady_clock::time_point();
        const bool collected = Until(limit, [&] {
            const auto now = std::chrono::steady_clock::now();
            if (now - last > std::chrono::seconds(5)) {  // what comes between two subscriptions is lost
                last = now;
                raised = standIn.Raise({one.number});
            }
            return EntriesWith(one.text, error).size() > before;
        });
        findings.Expect(collected, "the service collects for event " + std::to_string(one.number));
        limit = 30;
    }
    findings.Saw("raising the last event: " + StatusText(raised) + "; asking the event log: " + ErrorText(error));
    Until(5, [] { return ReadRegDword(kLocalMachine, kProductKey, kPendingEvent) == L"0"; });
    findings.ExpectText(platform::to_utf8(ReadRegDword(kLocalMachine, kProductKey, kPendingEvent)), "0",
                        "the number is settled");
    std::vector<TraceEvent> lines;
    session.Read(lines);
    for (const TraceEvent& line : lines) {
        if (line.text.find("WmiEvent") != std::string::npos && findings.lines().size() < 40) {
            findings.Saw("trace: " + line.text);
        }
    }
}

}  // namespace zorvalis::acceptance
