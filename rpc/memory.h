// The memory that the generated stubs of client and service allocate (MIDL_user_allocate). Large blocks are pages fresh
// from Windows, zeroed and unused, so that an output buffer of a megabyte costs only what the answer fills.
#pragma once

#include <cstddef>

namespace zorvalis_rpc {

// Zeroes a block that the stub has allocated and nobody has written to. A block of pages is skipped: it is zero
// already, and touching it would take memory. Touches nothing behind `size`, where the RPC runtime keeps a list of its
// own.
void ClearBlock(void* memory, std::size_t size);

}  // namespace zorvalis_rpc
