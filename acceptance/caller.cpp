#include "caller.h"

#include <windows.h>

#include <rpc.h>

#include <vector>

#include "base/json.h"
#include "platform/windows/handles.h"
#include "user_token.h"

namespace zorvalis::acceptance {
namespace {

std::vector<BYTE> Ask(HANDLE token, TOKEN_INFORMATION_CLASS what) {
    DWORD size = 0;
    ::GetTokenInformation(token, what, nullptr, 0, &size);
    std::vector<BYTE> answer(size);
    if (size == 0 || ::GetTokenInformation(token, what, answer.data(), size, &size) == FALSE) {
        answer.clear();
    }
    return answer;
}

DWORD Number(HANDLE token, TOKEN_INFORMATION_CLASS what, DWORD otherwise) {
    DWORD number = 0, size = 0;
    return ::GetTokenInformation(token, what, &number, sizeof number, &size) != FALSE ? number : otherwise;
}

Json Described(HANDLE token) {
    Json described;
    if (const auto user = Ask(token, TokenUser); !user.empty()) {
        described["sid"] = SidText(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid);
    }
    if (const auto label = Ask(token, TokenIntegrityLevel); !label.empty()) {
        const PSID sid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(label.data())->Label.Sid;
        described["integrity"] = *::GetSidSubAuthority(sid, *::GetSidSubAuthorityCount(sid) - 1U);
    }
    described["container"] = Number(token, TokenIsAppContainer, 0) != 0;
    return described;
}

}  // namespace

std::string CallerOfThisCall() {
    if (const RPC_STATUS status = ::RpcImpersonateClient(nullptr); status != RPC_S_OK) {
        return Json{{"error", status}}.dump();
    }
    HANDLE token = nullptr;
    // As the process itself: a client that may only be identified lets nobody open things in its name.
    const BOOL opened = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
    const DWORD error = ::GetLastError();
    ::RpcRevertToSelfEx(nullptr);
    if (opened == FALSE) {
        return Json{{"error", error}}.dump();
    }
    const platform::OwnedHandle owned(token);
    Json described = Described(token);
    described["level"] = Number(token, TokenImpersonationLevel, 99);
    return described.dump();
}

std::string ThisProcess() {
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
    const platform::OwnedHandle owned(token);
    Json described = Described(token);
    described["level"] = -1;
    return described.dump();
}

}  // namespace zorvalis::acceptance
