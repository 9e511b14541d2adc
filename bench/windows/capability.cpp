// Lets the service open its endpoint under Wine, which lacks the function that names a capability's identifiers. All
// else of the service is as it ships.
#include <windows.h>

#include "support/import_hook.h"
#include "windows/double/capability.h"

namespace {

BOOL WINAPI derive(const wchar_t*, PSID** groups, DWORD* group_count, PSID** sids, DWORD* count) {
    return doubles::derive_capabilities(1, groups, group_count, sids, count);
}

FARPROC WINAPI find_procedure(HMODULE library, const char* name) {
    return doubles::is_derive(name) ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(derive))
                                    : ::GetProcAddress(library, name);
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        new ImportHook("GetProcAddress", ::GetProcAddress, find_procedure);  // for the life of the process
    }
    return TRUE;
}
