#include "events/event_sink.h"

#include "base/text.h"
#include "common/log.h"
#include "common/registry.h"

namespace zorvalis {

void EventSink::Indicate(const platform::EventObject& object) {
    std::vector<std::wstring> names;
    object.property_names(names);
    for (const std::wstring& name : names) {  // a name without a readable number is passed over
        std::int32_t number = 0;
        if (name != L"EventID" || !object.integer(name, number)) {
            continue;
        }
        if (number == first_ || number == second_) {
            last_ = number;
            WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, static_cast<std::uint32_t>(number));
        }
        LogMessage("[WmiEventManager][EventSink] Indicate : " + NarrowBytes(name) + std::to_string(number));
    }
}

// 0: the query has ended, 2: it is in progress.
void EventSink::SetStatus(std::int32_t flags) {
    if (flags == 0) {
        LogMessage("[EventSink] Call complete. hResult");
    } else if (flags == 2) {
        LogMessage("[EventSink] Call in progress");
    }
}

}  // namespace zorvalis
