#include "events/wmi_event_manager.h"

#include <string>

#include "common/log.h"
#include "common/registry.h"
#include "common/root.h"
#include "jobs/job_manager.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"
#include "platform/event_subscription.h"

namespace zorvalis {
namespace {

struct Event {
    std::int32_t number;
    const wchar_t* words;
    JobTrigger trigger;
};

constexpr Event kEvents[] = {
    {154, L" [WmiEventManager] WMI 1 ( DGPU )", JOB_TRIGGER_WMI_DGPU},
    {155, L" [WmiEventManager] WMI 2 ( connector )", JOB_TRIGGER_WMI_CONNECTOR},
};

// The call and the number that the trace names for a failed platform::EventStep, in that order. Kept: no step is 2.
constexpr struct {
    const char *call, *number;
} kSteps[] = {{"CoInitializeEx", "1"},
              {"CoCreateInstance", "3"},
              {"ConnectServer", "4"},
              {"CoSetProxyBlanket", "5"},
              {"ExecNotificationQueryAsync", "6"}};

// Does nothing for a number that is not one of the two, such as 0.
void CollectFor(const std::wstring& number) {
    for (const Event& event : kEvents) {
        if (number == std::to_wstring(event.number)) {
            ReportServiceEvent(event.words, kInformation);
            JobManager::GetInstance().DoCollectJob(L"wmi_event", event.trigger, false, 0);
            return;
        }
    }
}

void CollectIfDue(const std::wstring& number) {
    if (isOverTotalCollectTime()) {
        return;
    }
    LogMessage("[WmiEventManager][waitForWmiEvent][isOverTotalCollectTime] NO");
    if (!isSpecificDojobDay()) {
        return;
    }
    LogMessage("[WmiEventManager][waitForWmiEvent][isSpecificDojobDay] YES");
    CollectFor(number);
}

void SettleEvent() {
    WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, 0);
}

}  // namespace

void WmiEventManager::initWmiEventReceiver(bool initCom) {
    constexpr std::uint32_t kMinute = 60000;  // milliseconds
    for (std::uint32_t wait = 0;;) {          // Kept: good cycles between two failures do not reset it
        while (setWmiEventReceiver(initCom) != 1) {
        }
        wait += kMinute;
        if (wait == 3 * kMinute) {
            LogMessage("setWmiEventReceiver trycount == 3 break");
            ReportServiceEvent(L"setWmiEventReceiver trycount == 3", kWarning);
            return;
        }
        LogMessage("setWmiEventReceiver == 1 start sleep");
        platform::sleep_milliseconds(wait);
        LogMessage("setWmiEventReceiver == 1 end sleep");
    }
}

int WmiEventManager::setWmiEventReceiver(bool initCom) {
    const auto sink = std::make_shared<EventSink>(kEvents[0].number, kEvents[1].number);
    const platform::EventSubscription subscription(initCom, L"ROOT\\WMI", L"SELECT * FROM ZorvQelWmiEvent", sink);
    if (subscription.status < 0) {
        const auto& [call, number] = kSteps[static_cast<std::size_t>(subscription.step)];
        LogMessage(std::string(" [WmiEventManager] Set WMI Event Receiver fail ") + call +
                   " failed:. Error code = " + std::to_string(subscription.status));
        LogMessage(std::string("[WmiEventManager] Set WMI Event Receiver fail : Step") + number);
        return 1;
    }
    LogMessage("[WmiEventManager] Set WMI Event Receiver OK");
    waitForWmiEvent(*sink);
    return 0;
}

void WmiEventManager::waitForWmiEvent(EventSink&) {
    SettleEvent();
    WaitRegKeyChange(kLocalMachine, kProductKey);  // any value under the key ends the wait
    const std::wstring mainSwitch = ReadRegString(kLocalMachine, kProductKey, L"MainSwitch");
    const std::wstring number = ReadRegDword(kLocalMachine, kProductKey, kPendingEvent);
    if (mainSwitch == ERROR_READREG || mainSwitch == L"0") {
        LogMessage("[WmiEventManager][waitForWmiEvent] WMI event do not collect!!");
        return;  // Kept: the number stays until the next cycle begins
    }
    if (mainSwitch != L"1") {
        return;
    }
    LogMessage("[WmiEventManager][waitForWmiEvent] WMI event need to collect!!");
    // A setting or a registry text that is not a number goes to the event log and does not end the receiver: the next
    // one may be sound.
    AtRoot("waitForWmiEvent", [&] { CollectIfDue(number); });
    SettleEvent();
}

}  // namespace zorvalis
