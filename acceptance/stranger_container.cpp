// App containers, whose functions Windows has from 8 on and Wine lacks: they are looked up at run time.
#include <algorithm>
#include <memory>

#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "stranger.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kName[] = L"zorv-acceptance";

using Create = HRESULT WINAPI(PCWSTR, PCWSTR, PCWSTR, SID_AND_ATTRIBUTES*, DWORD, PSID*);
using Delete = HRESULT WINAPI(PCWSTR);
using Derive = BOOL WINAPI(const wchar_t*, PSID**, DWORD*, PSID**, DWORD*);

template <class Function>
Function* Find(const wchar_t* library, const char* name) {
    const HMODULE loaded = ::LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return loaded == nullptr ? nullptr
                             : reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(loaded, name)));
}

// A capability's identifiers, each and the arrays to be freed.
struct Capability {
    PSID* groups = nullptr;
    DWORD groupCount = 0;
    PSID* sids = nullptr;
    DWORD count = 0;

    Capability() = default;
    ~Capability() {
        for (const auto& [array, length] : {std::pair{groups, groupCount}, std::pair{sids, count}}) {
            if (array != nullptr) {
                std::for_each(array, array + length, ::LocalFree);
                ::LocalFree(array);
            }
        }
    }
    Capability(const Capability&) = delete;
    Capability& operator=(const Capability&) = delete;
};

StrangersEnd Failed(const char* where, DWORD error = ::GetLastError()) {
    return {where, error};
}

}  // namespace

StrangersEnd RunContained(const std::string& command, const wchar_t* capability) {
    auto* const create = Find<Create>(L"userenv.dll", "CreateAppContainerProfile");
    auto* const derive = Find<Derive>(L"kernelbase.dll", "DeriveCapabilitySidsFromName");
    if (create == nullptr || derive == nullptr) {
        return Failed("no app containers", ERROR_PROC_NOT_FOUND);
    }
    RemoveContainer();
    PSID container = nullptr;
    if (const HRESULT result = create(kName, kName, L"Zorvalis acceptance kit", nullptr, 0, &container);
        FAILED(result)) {
        return Failed("CreateAppContainerProfile", static_cast<DWORD>(result));
    }
    const platform::Owned<::FreeSid, PSID> ownedContainer(container);
    Capability derived;
    if (capability != nullptr &&
        derive(capability, &derived.groups, &derived.groupCount, &derived.sids, &derived.count) == FALSE) {
        return Failed("DeriveCapabilitySidsFromName");
    }
    SID_AND_ATTRIBUTES has = {derived.count == 0 ? nullptr : derived.sids[0], SE_GROUP_ENABLED};
    SECURITY_CAPABILITIES contained = {container, derived.count == 0 ? nullptr : &has, derived.count == 0 ? 0U : 1U, 0};

    SIZE_T size = 0;
    ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    const std::unique_ptr<BYTE[]> room(new BYTE[size]);
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room.get());
    if (::InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size) == FALSE) {
        return Failed("InitializeProcThreadAttributeList");
    }
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    const BOOL made =
        ::UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_SECURITY_CAPABILITIES, &contained,
                                    sizeof contained, nullptr, nullptr) != FALSE &&
        // Without a console, whose host a container may not reach.
        ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, EXTENDED_STARTUPINFO_PRESENT | DETACHED_PROCESS,
                         nullptr, OpenCopy::Folder().c_str(), &startup.StartupInfo, &process) != FALSE;
    const DWORD error = ::GetLastError();
    ::DeleteProcThreadAttributeList(startup.lpAttributeList);
    return made == FALSE ? Failed("CreateProcessW", error) : WaitForStranger(process);
}

void RemoveContainer() {
    if (auto* const remove = Find<Delete>(L"userenv.dll", "DeleteAppContainerProfile")) {
        remove(kName);
    }
}

}  // namespace zorvalis::acceptance
