#include "common/registry.h"

#include <cstdio>

namespace zorvalis {

std::wstring ReadRegString(RegistryRoot root, std::wstring key, std::wstring value) {
    std::wstring data;
    return platform::read_registry_string(root, key, value, data) ? data : ERROR_READREG;
}

std::wstring ReadRegDword(RegistryRoot root, std::wstring key, std::wstring value) {
    std::uint32_t data = 0;
    return platform::read_registry_dword(root, key, value, data) ? std::to_wstring(data) : ERROR_READREG;
}

bool WriteRegString(RegistryRoot root, std::wstring key, std::wstring value, std::wstring data) {
    return platform::write_registry_string(root, key, value, data);
}

bool WriteRegDword(RegistryRoot root, std::wstring key, std::wstring value, std::uint32_t data) {
    return platform::write_registry_dword(root, key, value, data);
}

bool DeleteRegValue(RegistryRoot root, std::wstring key, std::wstring value) {
    return platform::delete_registry_value(root, key, value);
}

bool DeleteRegKey(RegistryRoot root, std::wstring key) {
    return platform::delete_registry_key(root, key);
}

void WaitRegKeyChange(RegistryRoot root, std::wstring key) {
    platform::RegistryWatch watch;
    if (watch.arm(root, key)) {
        std::printf("Waiting for a change in the specified key...\n");
        std::fflush(stdout);
    }
    watch.wait();
}

}  // namespace zorvalis
