#include "upload/answer.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace zorvalis {
namespace {

// JSON null for a missing member: reading it as a text or a number then throws like any member of the wrong type.
const Json& Member(const Json& answer, const char* key) {
    static const Json* const kNull = new Json;
    const auto found = answer.find(key);
    return found != answer.end() ? *found : *kNull;
}

// Whether a text in the body has no closing quote. The parser refuses such a body too, but its error copies the whole
// text, which can be megabytes, several times.
bool EndsInsideText(std::string_view body) {
    std::size_t at = 0;
    while (at < body.size()) {
        at = body[at] == '"' ? json_detail::EndOfText(body, at) : at + 1;
    }
    return at > body.size();
}

}  // namespace

Json ParseAnswer(std::string body) {
    std::replace_if(
        body.begin(), body.end(), [](char c) { return c == '\r' || c == '\n' || c == '\b' || c == '\f' || c == '\t'; },
        ' ');
    if (EndsInsideText(body)) {
        throw std::invalid_argument("parse error: missing closing quote");
    }
    return ParseJson(body);
}

std::string AnswerText(const Json& answer, const char* key) {
    return Member(answer, key).get<std::string>();
}

std::int32_t AnswerNumber(const Json& answer, const char* key) {
    const Json& number = Member(answer, key);
    RequireNumber(number);
    constexpr double kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr double kMost = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(number.get<double>(), kLeast, kMost));
}

}  // namespace zorvalis
