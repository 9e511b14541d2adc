// The machine's PATH, which stands in the registry as one text.
#pragma once

#include <string>

namespace zorvalis {

// Both tell what they did, leave every other entry as it is, unexpanded, and leave a value that they do not understand
// alone. True when PATH was changed.
bool AddToPath(const std::wstring& folder);
bool RemoveFromPath(const std::wstring& folder);

}  // namespace zorvalis
