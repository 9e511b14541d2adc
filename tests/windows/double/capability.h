// Stands in for the system's function that derives the security identifiers of a capability, which Wine lacks.
#pragma once

#include <windows.h>

#include <sddl.h>

namespace doubles {

inline PSID* make_sids(DWORD count) {
    auto* const sids = static_cast<PSID*>(::LocalAlloc(LPTR, (count + 1) * sizeof(PSID)));
    for (DWORD i = 0; i < count; ++i) {
        ::ConvertStringSidToSidW(L"S-1-15-3-1024-1-2-3-4-5-6-7-8", &sids[i]);
    }
    return sids;
}

// As many capabilities as wanted, and two groups. All of it is to be freed with LocalFree.
inline BOOL derive_capabilities(DWORD wanted, PSID** groups, DWORD* group_count, PSID** sids, DWORD* count) {
    *groups = make_sids(2);
    *group_count = 2;
    *sids = make_sids(wanted);
    *count = wanted;
    return TRUE;
}

inline bool is_derive(const char* name) {
    return reinterpret_cast<ULONG_PTR>(name) > 0xFFFF && ::lstrcmpA(name, "DeriveCapabilitySidsFromName") == 0;
}

}  // namespace doubles
