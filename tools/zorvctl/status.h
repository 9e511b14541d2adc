// The first and last command of a question: why is nothing collected?
#pragma once

namespace zorvalis {

// Prints each link and the verdict. Throws a Failure without words for an exit code of 1 or 2.
void PrintStatus(bool asJson);

}  // namespace zorvalis
