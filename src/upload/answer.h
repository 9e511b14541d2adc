// Parses the server's JSON answers and reads members of them.
#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"

namespace zorvalis {

// Parses the body of an answer. Carriage return, line feed, backspace, form feed and tab become blanks first, inside
// texts too. Throws std::invalid_argument for a body that is not JSON. For its callers the JSON number 0 means "no
// answer", so a body of "0" counts as none.
Json ParseAnswer(std::string body);

// Throw std::domain_error when the member is missing or of another type. AnswerNumber takes any JSON number, cuts its
// fraction and limits it to 32 bits, the range of an upload's offset.
std::string AnswerText(const Json& answer, const char* key);
std::int32_t AnswerNumber(const Json& answer, const char* key);

}  // namespace zorvalis
