// Where the generated stubs of either end take their memory from: big blocks are pages of their own, which the heap's
// reuse of memory never makes costly.
#pragma once

#include <cstddef>

namespace platform {

// Zeroes a stub's block that nobody has written to. Pages of its own are zeros from the start and take no memory as
// long as they are left alone. Nothing behind `size` is touched: the runtime's own list lies there.
void clear_rpc_block(void* memory, std::size_t size);

}  // namespace platform
