#include "common/number.h"

#include <cctype>
#include <limits>
#include <stdexcept>

#include "common/text.h"

namespace zorvalis {
namespace {

enum class Outcome { number, no_number, too_large };

Outcome Parse(const std::string& text, std::int64_t& number) {
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) {
        ++at;
    }
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        ++at;
    }
    const std::size_t first = at;
    number = 0;
    bool fits = true;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        const int digit = text[at] - '0';
        fits = fits && !__builtin_mul_overflow(number, 10, &number) &&
               !__builtin_add_overflow(number, negative ? -digit : digit, &number);
    }
    if (at == first) {
        return Outcome::no_number;
    }
    return fits ? Outcome::number : Outcome::too_large;
}

}  // namespace

std::int32_t ParseInt32(const std::string& text) {
    std::int64_t number = 0;
    const Outcome outcome = Parse(text, number);
    if (outcome == Outcome::no_number) {
        throw std::invalid_argument("invalid stoi argument");
    }
    if (outcome == Outcome::too_large || number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        throw std::out_of_range("stoi argument out of range");
    }
    return static_cast<std::int32_t>(number);
}

std::int32_t ParseInt32(const std::wstring& text) {
    return ParseInt32(WideToUtf8(text));
}

std::int64_t ParseInt64(const std::string& text) {
    std::int64_t number = 0;
    const Outcome outcome = Parse(text, number);
    if (outcome == Outcome::no_number) {
        throw std::invalid_argument("invalid stoll argument");
    }
    if (outcome == Outcome::too_large) {
        throw std::out_of_range("stoll argument out of range");
    }
    return number;
}

std::int64_t ParseInt64(const std::wstring& text) {
    return ParseInt64(WideToUtf8(text));
}

}  // namespace zorvalis
