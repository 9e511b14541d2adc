// The server's answers as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"

namespace zorvalis {

// The parsed answer; the JSON number 0 stands for no answer. Carriage return, line feed, backspace, form feed and tab
// are blanks, inside texts too. Raises std::invalid_argument for a body that does not parse.
Json ParseAnswer(std::string body);

// Raise std::domain_error when the member is missing or of another type. A number of any kind is cut to a
// 32-bit integer, which is what a row can hold.
std::string AnswerText(const Json& answer, const char* key);
std::int32_t AnswerNumber(const Json& answer, const char* key);

}  // namespace zorvalis
