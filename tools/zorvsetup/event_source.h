// The source of the product's entries in Windows' event log: which file has their texts.
#pragma once

#include <optional>
#include <string>

namespace zorvalis {

std::optional<std::wstring> ReadEventSource();  // the file
void WriteEventSource(const std::wstring& file);
void DeleteEventSource();

}  // namespace zorvalis
