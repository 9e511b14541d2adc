#include "purge.h"

#include <windows.h>

#include <string>
#include <vector>

#include "common/registry.h"
#include "folders.h"
#include "platform/text.h"
#include "report.h"

namespace zorvalis {
namespace {

// Deletes the key and then those above it, as long as they are empty, up to SOFTWARE.
void DeleteIfEmpty(std::wstring key) {
    for (; key.find(L'\\') != std::wstring::npos; key.resize(key.rfind(L'\\'))) {
        std::vector<std::wstring> subkeys;
        std::vector<platform::RegistryValue> values;
        if (platform::list_registry_key(kLocalMachine, key, subkeys, values) &&
            (!subkeys.empty() || !values.empty() || !platform::delete_registry_key(kLocalMachine, key))) {
            return;
        }
    }
}

void PurgeRegistry() {
    const LSTATUS error = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kProductKey);
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) {
        Fail("HKEY_LOCAL_MACHINE\\" + platform::to_utf8(kProductKey) + " cannot be deleted", error);
    }
    for (const wchar_t* value : kOwnConfigValues) {
        platform::delete_registry_value(kLocalMachine, kConfigKey, value);
    }
    DeleteIfEmpty(kProductKey);
    DeleteIfEmpty(kConfigKey);
}

}  // namespace

void PurgeRecords() {
    Attempts all;
    all.Make(PurgeRegistry);
    all.Make(DeleteFolders);
    all.Finish();
    Say("deleted the records. The log of setup stays, and so does an identity in the machine's own storage, which "
        "`zorvctl forget --yes` blanks");
}

}  // namespace zorvalis
