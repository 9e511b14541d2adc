#include "installer_steps.h"

#include <windows.h>

#include <tlhelp32.h>

#include "kit.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "user_token.h"

namespace zorvalis::acceptance {

InstallerSteps::InstallerSteps() {
    EnableRight(L"SeDebugPrivilege");
    thread_ = std::thread([this] {
        while (!over_) {
            Look();
            ::Sleep(5);
        }
    });
}

const std::set<std::string>& InstallerSteps::Seen() {
    over_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    return seen_;
}

void InstallerSteps::Look() {
    const platform::OwnedHandle all(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W each = {};
    each.dwSize = sizeof each;
    for (BOOL more = ::Process32FirstW(all.get(), &each); more != FALSE; more = ::Process32NextW(all.get(), &each)) {
        const std::wstring name = each.szExeFile;
        if (::_wcsnicmp(name.c_str(), L"MSI", 3) != 0 || !name.ends_with(L".tmp")) {
            continue;
        }
        const platform::OwnedHandle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, each.th32ProcessID));
        std::wstring path(32768, L'\0');
        auto length = static_cast<DWORD>(path.size());
        HANDLE token = nullptr;
        if (process == nullptr || ::QueryFullProcessImageNameW(process.get(), 0, path.data(), &length) == FALSE ||
            ::OpenProcessToken(process.get(), TOKEN_QUERY, &token) == FALSE) {
            continue;  // it has just ended
        }
        const platform::OwnedHandle owned(token);
        path.resize(length);
        seen_.insert(platform::to_utf8(path.substr(0, path.rfind(L'\\'))) + " as " + UserOf(token));
    }
}

}  // namespace zorvalis::acceptance
