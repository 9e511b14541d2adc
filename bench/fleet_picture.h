// The picture of docs/fleet.md, as SVG that follows the reader's light or dark colours.
#pragma once

#include <filesystem>

#include "fleet.h"

namespace fleet {

// Ends the program when the file cannot be written.
void Draw(const std::filesystem::path& file, const Load& asItIs, const Load& allAtOnce, const Load& afterOutage,
          int machines);

}  // namespace fleet
