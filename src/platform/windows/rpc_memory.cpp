// Where the generated stubs of either end take their memory from.
#include <windows.h>

#include <rpc.h>

#include <cstdlib>

// A client names the size of its output: none makes the service take as much memory as it likes.
constexpr SIZE_T kLargestBlock = 16 << 20;

extern "C" void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    return size <= kLargestBlock ? std::malloc(size) : nullptr;
}

extern "C" void __RPC_USER MIDL_user_free(void* memory) {
    std::free(memory);
}
