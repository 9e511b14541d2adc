#include "base/number.h"

#include <limits>
#include <stdexcept>

namespace zorvalis {
namespace {

enum class Outcome { number, no_number, too_large };

template <class Char>
Outcome Parse(const std::basic_string<Char>& text, std::int64_t& number) {
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
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
        const int digit = static_cast<int>(text[at]) - '0';
        fits = fits && !__builtin_mul_overflow(number, 10, &number) &&
               !__builtin_add_overflow(number, negative ? -digit : digit, &number);
    }
    if (at == first) {
        return Outcome::no_number;
    }
    return fits ? Outcome::number : Outcome::too_large;
}

template <class Char>
std::int32_t Int32(const std::basic_string<Char>& text) {
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

template <class Char>
std::int64_t Int64(const std::basic_string<Char>& text) {
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

}  // namespace

std::int32_t ParseInt32(const std::string& text) {
    return Int32(text);
}

std::int32_t ParseInt32(const std::wstring& text) {
    return Int32(text);
}

std::int64_t ParseInt64(const std::string& text) {
    return Int64(text);
}

std::int64_t ParseInt64(const std::wstring& text) {
    return Int64(text);
}

}  // namespace zorvalis
