// The little JSON that the stand-in library needs: finds a member and reads its value in a text, without allocating. A
// raw value is its text in the document, quotes included; a number can also be read as a text.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "line.h"

namespace zorvalis {

// The raw value of a member of the object `text`. Empty when the member is absent, and always when the text as a whole
// is not one valid object. When a name comes twice, the last one counts.
std::string_view FindMember(std::string_view text, std::string_view name);

// The same for several members in one walk.
struct Member {
    std::string_view name, value;
};
void FindMembers(std::string_view text, std::span<Member> wanted);

// Read a number, or true and false as 1 and 0. An integer is taken modulo 2^32, its fraction is cut off. False for any
// other value; `result` is unchanged then.
bool ReadInteger(std::string_view raw, std::uint32_t& result);
bool ReadNumber(std::string_view raw, double& result);

// Copy as much of a text as fits into `capacity` units, terminator included, without splitting a character. The narrow
// form is UTF-8. With `bare`, the text is not a JSON value: quotes and backslashes are copied as they are.
void CopyText(std::string_view raw, char* buffer, int capacity, bool bare = false);
void CopyText(std::string_view raw, wchar_t* buffer, int capacity, bool bare = false);

// Append a text as a raw value, quoted and escaped. In the narrow form only ASCII is kept, other bytes become "?".
void AddQuoted(Line& json, std::string_view text);
void AddQuoted(Line& json, const wchar_t* text);

}  // namespace zorvalis
