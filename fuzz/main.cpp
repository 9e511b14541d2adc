// A fuzzer's program: libFuzzer's own main calls this with each input. The build names the target.
#include <cstddef>
#include <cstdint>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ZORV_FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
    return 0;
}
