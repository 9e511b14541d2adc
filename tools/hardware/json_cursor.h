// A position in a JSON text, used by both json_text.cpp and json_characters.cpp.
#pragma once

#include <string_view>

namespace zorvalis {

struct Cursor {
    const char* at;
    const char* end;

    bool Is(char c) const { return at != end && *at == c; }
    bool Take(char c) {
        if (!Is(c)) {
            return false;
        }
        ++at;
        return true;
    }
    void SkipBlanks() {
        while (Is(' ') || Is('\t') || Is('\n') || Is('\r')) {
            ++at;
        }
    }
};

// The digit's value, or -1 for another character.
inline int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

inline Cursor Over(std::string_view text) {
    return {text.data(), text.data() + text.size()};
}

}  // namespace zorvalis
