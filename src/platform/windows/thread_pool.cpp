// The default thread pool of Windows.
#include "platform/thread_pool.h"

#include <windows.h>

#include <atomic>
#include <memory>

#include "platform/clock.h"

namespace platform {

struct PoolWork {
    PoolCallback callback;
    void* context;
    PTP_WORK item;
};

struct PoolTimer {
    PoolCallback callback;
    void* context;
    PTP_TIMER item;
};

namespace {

std::atomic<bool> items_refused{false};

void CALLBACK run_work(PTP_CALLBACK_INSTANCE, void* context, PTP_WORK) {
    const auto& work = *static_cast<const PoolWork*>(context);
    work.callback(work.context);
}

// The timer fires once, so our part is freed now; Windows' timer object stays until the process ends.
void CALLBACK run_timer(PTP_CALLBACK_INSTANCE, void* context, PTP_TIMER) {
    std::unique_ptr<PoolTimer> started(static_cast<PoolTimer*>(context));
    const PoolTimer timer = *started;
    started.reset();  // now, since the callback may never return
    timer.callback(timer.context);
}

template <class Item, class Make, class Run>
Item* create_item(Make make, Run run, PoolCallback callback, void* context) {
    if (items_refused) {
        return nullptr;
    }
    auto item = std::make_unique<Item>(Item{callback, context, nullptr});
    item->item = make(run, item.get(), nullptr);
    return item->item != nullptr ? item.release() : nullptr;
}

}  // namespace

PoolWork* create_pool_work(PoolCallback callback, void* context) {
    return create_item<PoolWork>(::CreateThreadpoolWork, run_work, callback, context);
}

void submit_pool_work(PoolWork* work) {
    ::SubmitThreadpoolWork(work->item);
}

PoolTimer* create_pool_timer(PoolCallback callback, void* context) {
    return create_item<PoolTimer>(::CreateThreadpoolTimer, run_timer, callback, context);
}

void start_pool_timer(PoolTimer* timer, std::uint32_t milliseconds) {
    const std::int64_t ticks = -10 * scaled_wait(milliseconds);  // negative: relative to now; in units of 100 ns
    FILETIME due = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    ::SetThreadpoolTimer(timer->item, &due, 0, 0);
}

void refuse_pool_items(bool refused) {
    items_refused = refused;
}

}  // namespace platform
