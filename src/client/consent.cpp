#include "client/consent.h"

#include <cstdint>

#include "common/code_page.h"
#include "common/device_identity.h"
#include "common/log.h"
#include "platform/library.h"

namespace zorvalis {
namespace {

// The library's one function that is called. 1 stands for recorded.
using SetAPInfo = std::int32_t(const char* uuid, const wchar_t* windowsAccount, const char* appName,
                               const char* appVersion, std::int32_t isAgreePP, const SystemTime* time);

// One call of the library. `prepare` returns Texts, in the forms that the library takes, and traces them.
template <class Prepare>
bool Record(const std::string& name, const SystemTime& time, bool isAgreePP, Prepare prepare) {
    LogMessage("[SystemInfoClass] <-- " + name);
    bool recorded = false;
    {
        const platform::SharedLibrary library(L"ChkReg.dll");
        auto* const setAPInfo = library.function<SetAPInfo>("SetAPInfo");
        if (setAPInfo == nullptr) {
            return false;  // Kept: without the closing line
        }
        const std::string uuid = getDeviceUUID();
        const auto [windowsAccount, appName, appVersion] = prepare();
        const std::int32_t result = setAPInfo(uuid.c_str(), windowsAccount.c_str(), appName.c_str(), appVersion.c_str(),
                                              isAgreePP ? 1 : 0, &time);
        LogMessage(std::to_string(result));
        recorded = result == 1;
    }
    LogMessage("[SystemInfoClass] --> " + name);
    return recorded;
}

struct Texts {
    std::wstring windowsAccount;
    std::string appName;
    std::string appVersion;
};

}  // namespace

bool CallPP(const std::wstring& windowsAccount, const std::wstring& appName, const std::wstring& appVersion,
            const SystemTime& time, bool isAgreePP) {
    return Record("CallPP", time, isAgreePP, [&] {
        const Texts texts = {windowsAccount, WideByte2Ansi(appName), WideByte2Ansi(appVersion)};
        LogMessageW(L"windowsAccount = " + windowsAccount + L", appName = " + appName + L", appVersion = " +
                    appVersion + L",isAgreePP = " + (isAgreePP ? L"1" : L"0"));
        return texts;
    });
}

bool CallPPForString(std::string windowsAccount, std::string appName, std::string appVersion, SystemTime time,
                     bool isAgreePP) {
    return Record("CallPPForString", time, isAgreePP, [&] {
        const Texts texts = {AnsiToWideBuffer(windowsAccount.c_str()).get(), appName, appVersion};
        LogMessage("windowsAccount = " + windowsAccount + ", appName = " + appName + ", appVersion = " + appVersion +
                   ",isAgreePP = " + (isAgreePP ? "1" : "0"));
        return texts;
    });
}

}  // namespace zorvalis
