// The process's default pool of threads, which grows: work that runs at once, and timers that fire once. A callback
// may block for as long as it likes, or for ever. Neither work nor timers are closed: what is pending ends with the
// process.
#pragma once

#include <cstdint>

namespace platform {

struct PoolWork;
struct PoolTimer;

// Nothing may leave it.
using PoolCallback = void (*)(void* context);

// Null when it cannot be made. It is submitted once and not used after that: the stand-in machine frees it then, and
// Windows never.
PoolWork* create_pool_work(PoolCallback callback, void* context);
void submit_pool_work(PoolWork* work);

// Null when it cannot be made. It fires once, `milliseconds` from the start, by the machine's clock of waits. It is not
// used after its start: the stand-in machine frees it then, Windows when it fires, before the callback.
PoolTimer* create_pool_timer(PoolCallback callback, void* context);
void start_pool_timer(PoolTimer* timer, std::uint32_t milliseconds);

// For tests: whether the next works and timers can be made at all.
void refuse_pool_items(bool refused);

}  // namespace platform
