// A GUID as Windows lays it out: four fields, the numbers in this machine's byte order.
#pragma once

#include <cstdint>

namespace platform {

struct Guid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];

    bool operator==(const Guid&) const = default;
};

}  // namespace platform
