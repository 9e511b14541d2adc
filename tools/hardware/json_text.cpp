// A walk over the whole document that checks it and builds nothing: each Skip function moves behind one element and
// returns false when it is not valid.
#include "json_text.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "json_cursor.h"

namespace zorvalis {
namespace {

constexpr int kDeepest = 32;  // levels; the walk recurses, and the stack is the caller's

bool SkipEscape(Cursor& cursor) {
    if (cursor.at == cursor.end) {
        return false;
    }
    const char c = *cursor.at++;
    if (c != 'u') {
        return std::string_view("\"\\/bfnrt").find(c) != std::string_view::npos;
    }
    for (int i = 0; i < 4; ++i, ++cursor.at) {
        if (cursor.at == cursor.end || HexDigit(*cursor.at) < 0) {
            return false;
        }
    }
    return true;
}

// The bytes that stand for themselves in a text. A table, since most of a document is such bytes.
constexpr auto kPlain = [] {
    std::array<bool, 256> plain{};
    for (int c = 0x20; c < 256; ++c) {
        plain[c] = c != '"' && c != '\\';
    }
    return plain;
}();

bool SkipText(Cursor& cursor) {
    if (!cursor.Take('"')) {
        return false;
    }
    do {
        cursor.at = std::find_if_not(cursor.at, cursor.end, [](unsigned char c) { return kPlain[c]; });
        if (cursor.Take('"')) {
            return true;
        }
    } while (cursor.Take('\\') && SkipEscape(cursor));
    return false;
}

bool SkipDigits(Cursor& cursor) {
    const char* const start = cursor.at;
    while (cursor.at != cursor.end && *cursor.at >= '0' && *cursor.at <= '9') {
        ++cursor.at;
    }
    return cursor.at != start;
}

bool SkipNumber(Cursor& cursor) {
    cursor.Take('-');
    if (!cursor.Take('0') && !SkipDigits(cursor)) {
        return false;
    }
    if (cursor.Take('.') && !SkipDigits(cursor)) {
        return false;
    }
    if (cursor.Take('e') || cursor.Take('E')) {
        if (!cursor.Take('-')) {
            cursor.Take('+');
        }
        return SkipDigits(cursor);
    }
    return true;
}

bool SkipWord(Cursor& cursor, std::string_view word) {
    if (static_cast<std::size_t>(cursor.end - cursor.at) < word.size() ||
        std::string_view(cursor.at, word.size()) != word) {
        return false;
    }
    cursor.at += word.size();
    return true;
}

// Skips a list of elements between brackets; `skip` skips one element.
template <class Skip>
bool SkipList(Cursor& cursor, char open, char close, int depth, Skip skip) {
    if (depth > kDeepest || !cursor.Take(open)) {
        return false;
    }
    cursor.SkipBlanks();
    if (cursor.Take(close)) {
        return true;
    }
    do {
        cursor.SkipBlanks();
        if (!skip()) {
            return false;
        }
        cursor.SkipBlanks();
    } while (cursor.Take(','));
    return cursor.Take(close);
}

bool SkipValue(Cursor& cursor, int depth);

// Calls `visit` with the name of each member, its escapes as they are, and its raw value.
template <class Visit>
bool SkipObject(Cursor& cursor, int depth, Visit visit) {
    return SkipList(cursor, '{', '}', depth, [&] {
        const char* const name = cursor.at;
        if (!SkipText(cursor)) {
            return false;
        }
        const char* const nameEnd = cursor.at;
        cursor.SkipBlanks();
        if (!cursor.Take(':')) {
            return false;
        }
        cursor.SkipBlanks();
        const char* const value = cursor.at;
        if (!SkipValue(cursor, depth + 1)) {
            return false;
        }
        visit(std::string_view(name + 1, static_cast<std::size_t>(nameEnd - name - 2)),
              std::string_view(value, static_cast<std::size_t>(cursor.at - value)));
        return true;
    });
}

bool SkipValue(Cursor& cursor, int depth) {
    switch (cursor.at != cursor.end ? *cursor.at : '\0') {
        case '"':
            return SkipText(cursor);
        case '{':
            return SkipObject(cursor, depth, [](std::string_view, std::string_view) {});
        case '[':
            return SkipList(cursor, '[', ']', depth, [&] { return SkipValue(cursor, depth + 1); });
        case 't':
            return SkipWord(cursor, "true");
        case 'f':
            return SkipWord(cursor, "false");
        case 'n':
            return SkipWord(cursor, "null");
        default:
            return SkipNumber(cursor);
    }
}

}  // namespace

void FindMembers(std::string_view text, std::span<Member> wanted) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (BeginsWith(text, kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    Cursor cursor = Over(text);
    cursor.SkipBlanks();
    const bool sound = SkipObject(cursor, 0, [&](std::string_view name, std::string_view value) {
        for (Member& one : wanted) {
            if (one.name == name) {
                one.value = value;
            }
        }
    });
    cursor.SkipBlanks();
    if (!sound || cursor.at != cursor.end) {
        for (Member& one : wanted) {
            one.value = {};
        }
    }
}

std::string_view FindMember(std::string_view text, std::string_view name) {
    Member member{name, {}};
    FindMembers(text, {&member, 1});
    return member.value;
}

bool ReadNumber(std::string_view raw, double& result) {
    if (raw == "true" || raw == "false") {
        result = raw == "true" ? 1 : 0;
        return true;
    }
    Cursor cursor = Over(raw);
    if (!SkipNumber(cursor) || cursor.at != cursor.end) {
        return false;
    }
    // By hand, since strtod follows the locale of the process.
    double digits = 0;
    double scale = 1;
    bool fraction = false;
    std::size_t i = raw[0] == '-' ? 1 : 0;
    for (; i < raw.size() && (raw[i] | 0x20) != 'e'; ++i) {
        if (raw[i] == '.') {
            fraction = true;
            continue;
        }
        digits = digits * 10 + (raw[i] - '0');
        scale *= fraction ? 10 : 1;
    }
    int exponent = 0;
    const bool small = i + 1 < raw.size() && raw[i + 1] == '-';
    for (++i; i < raw.size() && exponent < 400; ++i) {
        exponent = raw[i] >= '0' && raw[i] <= '9' ? exponent * 10 + (raw[i] - '0') : exponent;
    }
    result = digits / scale;
    for (; exponent > 0; --exponent) {
        result = small ? result / 10 : result * 10;
    }
    result = raw[0] == '-' ? -result : result;
    return std::isfinite(result);
}

bool ReadInteger(std::string_view raw, std::uint32_t& result) {
    double number = 0;
    if (!ReadNumber(raw, number) || number < -9e18 || number > 9e18) {
        return false;
    }
    result = static_cast<std::uint32_t>(static_cast<std::int64_t>(number));
    return true;
}

}  // namespace zorvalis
