#include "platform/entry.h"

#include <windows.h>

namespace platform {

void distrust_users() {
    ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto set_policy = reinterpret_cast<decltype(&::SetProcessMitigationPolicy)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetProcessMitigationPolicy")));
    if (set_policy != nullptr) {
        PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
        policy.EnforceRedirectionTrust = 1;
        set_policy(ProcessRedirectionTrustPolicy, &policy, sizeof policy);  // fails, and may, before Windows 11
    }
}

}  // namespace platform
