// The upload's own record of each file, for `zorvctl uploads` and `zorvctl status`.
#pragma once

#include <string>
#include <vector>

#include "upload/file_record.h"

namespace zorvalis {

// Oldest first. Throws a Failure for a status database that is damaged.
std::vector<FileRecord> ReadRecords();

// How the latest attempt at the file ended, in words: "sent", "a piece of it was not taken: BUSY". Empty without one.
std::string OutcomeWords(const FileRecord& record);

}  // namespace zorvalis
