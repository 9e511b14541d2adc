// From UTF-8, of the floor's headers and the machine's files, to wide text (UTF-32), and back.
#pragma once

#include <optional>

#include "platform/text.h"

namespace platform {

// Nothing when the bytes are not valid UTF-8.
std::optional<std::wstring> to_wide(std::string_view text);

}  // namespace platform
