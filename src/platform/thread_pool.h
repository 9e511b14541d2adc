// A pool of threads for the whole process: work that runs at once, and timers that fire once. The pool grows, so a
// callback may block as long as it likes, or for ever. Work and timers are never cancelled: what is pending ends with
// the process. Any thread.
#pragma once

#include <cstdint>

namespace platform {

struct PoolWork;
struct PoolTimer;

// It must not throw.
using PoolCallback = void (*)(void* context);

// Null when it cannot be made. Submit it once and do not use it afterwards: the stand-in machine frees it then, the
// Windows side never does.
PoolWork* create_pool_work(PoolCallback callback, void* context);
void submit_pool_work(PoolWork* work);

// Null when it cannot be made. Start it once and do not use it afterwards: it fires after `milliseconds`, scaled (see
// clock.h). The stand-in machine frees it at the start, the Windows side when it fires, before the callback.
PoolTimer* create_pool_timer(PoolCallback callback, void* context);
void start_pool_timer(PoolTimer* timer, std::uint32_t milliseconds);

// For tests: while this is on, making work or a timer fails.
void refuse_pool_items(bool refused);

}  // namespace platform
