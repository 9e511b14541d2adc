// The one conversion that traces nothing, since tracing needs it itself. Those of code_page.h do.
#pragma once

#include "platform/text.h"

namespace zorvalis {

inline std::string WideToUtf8(const std::wstring& text) {
    return platform::to_utf8(text);
}

}  // namespace zorvalis
