// The one conversion that traces nothing, since tracing needs it itself. Those of code_page.h do.
#pragma once

#include <string>

namespace zorvalis {

// An empty text when the conversion fails.
std::string WideToUtf8(const std::wstring& text);

}  // namespace zorvalis
