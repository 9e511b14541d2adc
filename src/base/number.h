// Decimal integers at the start of a text: leading blanks, a sign, digits; what follows is ignored. A text without such
// a number throws std::invalid_argument, one that does not fit std::out_of_range. Kept: their messages name `stoi` and
// `stoll`; they get into logs.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

std::int32_t ParseInt32(const std::string& text);
std::int32_t ParseInt32(const std::wstring& text);
std::int64_t ParseInt64(const std::string& text);
std::int64_t ParseInt64(const std::wstring& text);

// Sums and products that wrap around instead of being undefined: settings and registry values may hold any number.
constexpr std::int64_t WrapAdd(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}
constexpr std::int64_t WrapSubtract(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}
constexpr std::int32_t WrapSubtract32(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}
constexpr std::int32_t WrapMultiply(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

}  // namespace zorvalis
