// The page of `zorvctl report` before and after its records. The source is made by embed.py.
#pragma once

namespace zorvalis {

extern const char kPageBeforeRecords[];
extern const char kPageAfterRecords[];

}  // namespace zorvalis
