// Texts that are JSON as they stand, for who writes many of them: the JSON library takes far longer to write one.
#pragma once

#include <algorithm>
#include <string_view>

namespace zorvalis {

// Whether the text needs nothing but quotes around it: printable ASCII, without a quote and a backslash.
inline bool IsPlainJsonText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace zorvalis
