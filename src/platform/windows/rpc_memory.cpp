#include "platform/windows/rpc_memory.h"

#include <windows.h>

#include <rpc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// A client names the size of its output: none makes the service take as much memory as it likes.
constexpr SIZE_T kLargestBlock = 16 << 20;

constexpr SIZE_T kPages = 0x10000;  // from here on; also what the addresses of pages are a multiple of

// The heap's blocks lie behind a header, and never where Windows' own allocation begins.
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

namespace platform {

void clear_rpc_block(void* memory, std::size_t size) {
    if (!has_pages(memory)) {
        std::memset(memory, 0, size);
    }
}

}  // namespace platform
