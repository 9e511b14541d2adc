// Memory of the generated stubs: small blocks from the heap, large ones as pages of their own.
#include "memory.h"

#include <windows.h>

#include <rpc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// A client names the size of its output buffer; this limit keeps it from exhausting the service's memory.
constexpr SIZE_T kLargestBlock = 16 << 20;

// From this size on a block is pages of its own. Addresses that VirtualAlloc returns are multiples of it too.
constexpr SIZE_T kPages = 0x10000;

// Tells pages from a heap block: a heap block lies behind a header, never at the start of a Windows allocation.
bool has_pages(const void* memory) {
    MEMORY_BASIC_INFORMATION info{};
    return reinterpret_cast<std::uintptr_t>(memory) % kPages == 0 && ::VirtualQuery(memory, &info, sizeof info) != 0 &&
           info.AllocationBase == memory;
}

}  // namespace

extern "C" void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    if (size > kLargestBlock) {
        return nullptr;
    }
    return size < kPages ? std::malloc(size) : ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

extern "C" void __RPC_USER MIDL_user_free(void* memory) {
    if (memory == nullptr || !has_pages(memory)) {
        std::free(memory);
    } else {
        ::VirtualFree(memory, 0, MEM_RELEASE);
    }
}

namespace zorvalis_rpc {

void ClearBlock(void* memory, std::size_t size) {
    if (!has_pages(memory)) {
        std::memset(memory, 0, size);
    }
}

}  // namespace zorvalis_rpc
