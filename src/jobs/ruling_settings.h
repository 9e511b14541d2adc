// The settings that rule now, for those that JobManager itself calls. JobManager owns them.
#pragma once

#include <memory>

#include "settings/setting_file_manager.h"

namespace zorvalis {

// Makes JobManager when it is not there yet, and may then raise the errors of the first load.
std::shared_ptr<const Settings> RulingSettings();

}  // namespace zorvalis
