// The characters of JSON texts: out of a document into a caller's buffer, and back into a document.
#include "base/utf8.h"
#include "json_cursor.h"
#include "json_text.h"

namespace zorvalis {
namespace {

// Reads a text character by character. A byte that is not UTF-8 and half a surrogate pair become U+FFFD.
class TextReader {
public:
    TextReader(std::string_view raw, bool bare) : cursor_(Over(raw)), quoted_(!bare && raw.starts_with('"')) {
        if (quoted_) {
            ++cursor_.at;
            --cursor_.end;
        }
    }

    bool Next(char32_t& c) {
        if (cursor_.at == cursor_.end) {
            return false;
        }
        c = quoted_ && cursor_.Take('\\') ? Escape() : Utf8();
        return true;
    }

private:
    char32_t Escape() {
        switch (const char c = *cursor_.at++) {
            case 'b':
                return U'\b';
            case 'f':
                return U'\f';
            case 'n':
                return U'\n';
            case 'r':
                return U'\r';
            case 't':
                return U'\t';
            case 'u':
                return Unit();
            default:
                return static_cast<unsigned char>(c);
        }
    }

    char32_t Hex() {
        char32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value * 16 + static_cast<char32_t>(HexDigit(*cursor_.at++));
        }
        return value;
    }

    // The character after "\u", which may take two escapes.
    char32_t Unit() {
        const char32_t first = Hex();
        if (first < 0xD800 || first > 0xDFFF) {
            return first;
        }
        const char* const after = cursor_.at;
        if (first < 0xDC00 && cursor_.Take('\\') && cursor_.Take('u')) {
            const char32_t second = Hex();
            if (second >= 0xDC00 && second <= 0xDFFF) {
                return 0x10000 + ((first & 0x3FF) << 10 | (second & 0x3FF));
            }
        }
        cursor_.at = after;
        return kReplacementCharacter;
    }

    // Of an invalid sequence only the first byte is replaced; reading goes on at the next byte.
    char32_t Utf8() {
        char32_t c = kReplacementCharacter;
        const std::size_t length = DecodeUtf8({cursor_.at, static_cast<std::size_t>(cursor_.end - cursor_.at)}, c);
        cursor_.at += length > 0 ? length : 1;
        return c;
    }

    Cursor cursor_;
    bool quoted_;
};

// One character in units of `Char`, that is UTF-8, UTF-16 or UTF-32; returns how many units, at most 4.
int Encode(char32_t c, char* units) {
    return static_cast<int>(EncodeUtf8(c, units));
}

int Encode(char32_t c, wchar_t* units) {
    if (sizeof(wchar_t) == 4 || c < 0x10000) {
        units[0] = static_cast<wchar_t>(c);
        return 1;
    }
    units[0] = static_cast<wchar_t>(0xD800 | (c - 0x10000) >> 10);
    units[1] = static_cast<wchar_t>(0xDC00 | (c & 0x3FF));
    return 2;
}

template <class Char>
void Copy(std::string_view raw, Char* buffer, int capacity, bool bare) {
    TextReader reader(raw, bare);
    char32_t c = 0;
    Char units[4];
    int size = 0;
    while (reader.Next(c)) {
        const int count = Encode(c, units);
        if (count > capacity - 1 - size) {
            break;
        }
        for (int i = 0; i < count; ++i) {
            buffer[size++] = units[i];
        }
    }
    buffer[size] = 0;
}

void AddCharacter(Line& json, char32_t c) {
    char units[4];
    if (c == '"' || c == '\\') {
        json.Add("\\");
    }
    if (c < 0x20) {
        constexpr std::string_view kHex = "0123456789abcdef";
        json.Add(c < 0x10 ? "\\u000" : "\\u001").Add(std::string_view(&kHex[c & 0xF], 1));
    } else {
        json.Add(std::string_view(units, EncodeUtf8(c, units)));
    }
}

}  // namespace

void CopyText(std::string_view raw, char* buffer, int capacity, bool bare) {
    Copy(raw, buffer, capacity, bare);
}

void CopyText(std::string_view raw, wchar_t* buffer, int capacity, bool bare) {
    Copy(raw, buffer, capacity, bare);
}

void AddQuoted(Line& json, std::string_view text) {
    json.Add("\"");
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        AddCharacter(json, byte < 0x80 ? byte : U'?');
    }
    json.Add("\"");
}

void AddQuoted(Line& json, const wchar_t* text) {
    json.Add("\"");
    for (; *text != 0; ++text) {
        auto c = static_cast<char32_t>(*text);
        if (sizeof(wchar_t) == 2 && (c & 0xFC00) == 0xD800 && (text[1] & 0xFC00) == 0xDC00) {
            c = 0x10000 + ((c & 0x3FF) << 10 | (static_cast<char32_t>(*++text) & 0x3FF));
        }
        AddCharacter(json, IsCharacter(c) ? c : kReplacementCharacter);
    }
    json.Add("\"");
}

}  // namespace zorvalis
