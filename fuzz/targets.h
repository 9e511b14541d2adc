// What is fuzzed: each target takes any bytes on a machine of its own, and nothing may come of them but what the
// system does with bad input. The tests run the same targets over the corpus.
#pragma once

#include <string>

namespace zorvalis {

// The stored setting file, and the server's answer to a query for one, with all that reads the settings.
void FuzzSettingDocument(const std::string& bytes);

// The answer to each call of an upload, with what is written of it to the file's row.
void FuzzServerAnswer(const std::string& bytes);

}  // namespace zorvalis
