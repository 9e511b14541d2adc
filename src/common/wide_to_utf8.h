// The one conversion that logging needs too, so it logs nothing itself; code_page.h has those that do.
#pragma once

#include <string>

namespace zorvalis {

// An empty text for a failed conversion.
std::string WideToUtf8(const std::wstring& text);

}  // namespace zorvalis
