// Where the generated stubs of either end take their memory from.
#include <windows.h>

#include <rpc.h>

#include <cstdlib>

extern "C" void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    return std::malloc(size);
}

extern "C" void __RPC_USER MIDL_user_free(void* memory) {
    std::free(memory);
}
