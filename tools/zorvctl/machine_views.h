// What `settings` and `uploads` tell about this machine, as JSON, for those commands and for the report. Each throws a
// Failure for what cannot be told.
#pragma once

#include "base/json.h"

namespace zorvalis {

// Which settings rule, and each key's meaning.
Json SettingsAsJson();

// The newest files on their way to the server, or all.
Json UploadsAsJson(bool all);

}  // namespace zorvalis
