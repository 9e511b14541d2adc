// For tests, a hardware library of another generation: it has one reading, and no exports to initialise it or shut it
// down.
#include <cstdint>

#ifdef _WIN32
#define ZORV_EXPORT extern "C" __declspec(dllexport)
#else
#define ZORV_EXPORT extern "C" __attribute__((visibility("default")))
#endif

ZORV_EXPORT std::uint32_t Thermal_Read_Cpu_Temperature() {
    return 41;
}
