// Where the generated stubs of either end take their memory from: big blocks are pages of their own, which the heap's
// reuse of memory never makes costly.
#pragma once

#include <cstddef>

namespace platform {

// Zeroes a stub's block. Pages of its own go back and come anew: what is never written then costs nothing, however long
// its call waits. False when they do not come back, and the block is gone but for its release.
bool clear_rpc_block(void* memory, std::size_t size);

}  // namespace platform
