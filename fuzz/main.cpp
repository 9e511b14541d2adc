// The entry that the fuzzer calls, for the target named by the build.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/registry.h"
#include "support/machine.h"
#include "targets.h"

namespace {

TestMachine* machine = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    machine = new TestMachine;
    std::atexit([] { delete machine; });
    machine->ready();
    machine->install_library();
    machine->hardware(R"({"WMIGetSystemChassisTypes": "Notebook", "GPNV_ActivatedTime": "blank"})");
    machine->default_setting(R"({"thermal": "m30", "intervalTimer": "1", "totalCollectTime": "600"})");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zorvalis::FUZZ_TARGET(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
