// JSON as far as the stand-in library needs it: members found, and values read, in a text that stays where it is.
// A raw value is its text in the document, quotes included; numbers also read as texts.
#pragma once

#include <cstdint>
#include <string_view>

#include "line.h"

namespace zorvalis {

// The raw value of a member of the object that `text` is. Empty when the member is absent, and for any member when
// the text is not one whole and faultless object. Of members with one name the last counts.
std::string_view FindMember(std::string_view text, std::string_view name);

// Numbers, true and false. Integers are taken modulo 2^32; fractions are cut off. False for anything else.
bool ReadInteger(std::string_view raw, std::uint32_t& result);
bool ReadNumber(std::string_view raw, double& result);

// Copies as much of a text as fits into `capacity` characters, terminator included; no character is split. The
// narrow form is UTF-8. `bare` text is no JSON: its quotes are its own.
void CopyText(std::string_view raw, char* buffer, int capacity, bool bare = false);
void CopyText(std::string_view raw, wchar_t* buffer, int capacity, bool bare = false);

// Appends a text as a raw value, quoted and escaped.
void AddQuoted(Line& json, std::string_view text);
void AddQuoted(Line& json, const wchar_t* text);

}  // namespace zorvalis
