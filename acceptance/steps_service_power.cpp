// The power settings that the service hears of, as far as a program can bring them about: the display's state. The lid
// and the mains need somebody at the machine (group 9).
#include <windows.h>

#include <atomic>

#include "collection/triggers.h"
#include "common/registry.h"
#include "package.h"
#include "platform/service.h"
#include "platform/windows/guid.h"
#include "product_service.h"
#include "service/power_settings.h"
#include "steps_service.h"

namespace zorvalis::acceptance {
namespace {

// What Windows tells this process of the console's display: 0 off, 1 on, 2 dimmed; -1 before it has told anything.
class Display {
public:
    Display() {
        // Of System32, where late libraries come from.
        const HMODULE library = ::LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        const auto find = [&](const char* name) {
            return reinterpret_cast<void*>(library == nullptr ? nullptr : ::GetProcAddress(library, name));
        };
        register_ = reinterpret_cast<Register>(find("PowerSettingRegisterNotification"));
        unregister_ = reinterpret_cast<Unregister>(find("PowerSettingUnregisterNotification"));
        const GUID setting = platform::to_system(GUID_CONSOLE_DISPLAY_STATE);
        if (register_ == nullptr || register_(&setting, kToCallback, &recipient_, &registration_) != ERROR_SUCCESS) {
            registration_ = nullptr;
        }
        Becomes(1, 5);
    }
    ~Display() {
        if (registration_ != nullptr && unregister_ != nullptr) {
            unregister_(registration_);
        }
    }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    bool Becomes(long wanted, int seconds) const {
        for (int tenth = 0; tenth < 10 * seconds && state_ != wanted; ++tenth) {
            ::Sleep(100);
        }
        return state_ == wanted;
    }
    long state() const { return state_; }

private:
    struct Recipient {
        ULONG(CALLBACK* callback)(void* context, ULONG type, void* setting);
        void* context;
    };
    using Register = DWORD(WINAPI*)(const GUID*, DWORD, Recipient*, void**);
    using Unregister = DWORD(WINAPI*)(void*);
    static constexpr DWORD kToCallback = 2;  // DEVICE_NOTIFY_CALLBACK

    static ULONG CALLBACK Told(void* context, ULONG type, void* setting) {
        if (type == PBT_POWERSETTINGCHANGE && setting != nullptr) {
            static_cast<Display*>(context)->state_ =
                static_cast<long>(static_cast<const platform::PowerSettingChange*>(setting)->data);
        }
        return ERROR_SUCCESS;
    }

    std::atomic<long> state_{-1};
    Register register_ = nullptr;
    Unregister unregister_ = nullptr;
    void* registration_ = nullptr;
    Recipient recipient_ = {Told, this};
};

void SwitchDisplay(bool on) {
    constexpr LPARAM kOn = -1, kOff = 2;
    DWORD_PTR result = 0;
    ::SendMessageTimeoutW(HWND_BROADCAST, WM_SYSCOMMAND, SC_MONITORPOWER, on ? kOn : kOff, SMTO_ABORTIFHUNG, 2000,
                          &result);
    if (on) {  // present versions of Windows switch on for input alone
        INPUT moves[2] = {};
        for (int index = 0; index < 2; ++index) {
            moves[index].type = INPUT_MOUSE;
            moves[index].mi.dx = index == 0 ? 1 : -1;
            moves[index].mi.dwFlags = MOUSEEVENTF_MOVE;
        }
        ::SendInput(2, moves, sizeof *moves);
    }
}

// On a machine of Modern Standby a display that goes off is the beginning of sleep, from which only a person wakes it.
bool SleepsWithItsDisplay() {
    const HMODULE library = ::LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto ask = reinterpret_cast<BOOLEAN(WINAPI*)(SYSTEM_POWER_CAPABILITIES*)>(
        reinterpret_cast<void*>(library == nullptr ? nullptr : ::GetProcAddress(library, "GetPwrCapabilities")));
    SYSTEM_POWER_CAPABILITIES can = {};
    constexpr int kAoAc = 2;  // mingw's header has no name for this byte
    return ask != nullptr && ask(&can) != FALSE && can.spare2[kAoAc] != FALSE;
}

// Whether the power-on that is owed becomes a row, which the registry shows.
bool PowerOnIsSettled(int seconds) {
    for (int tenth = 0; tenth < 10 * seconds; ++tenth) {
        if (ReadRegDword(kLocalMachine, kProductKey, L"ISPOWERON") == L"0") {
            return true;
        }
        ::Sleep(100);
    }
    return false;
}

}  // namespace

void RecordsPowerOn(Findings& findings) {
    NeedRunnable(findings);
    const Display display;
    if (display.state() != 1) {
        findings.Impossible("the console's display is not on: Windows says " + std::to_string(display.state()));
    }
    StopProduct(findings);
    const std::string before = Behavior(findings);
    WriteRegDword(kLocalMachine, kProductKey, L"ISPOWERON", 1);  // as a shutdown leaves it
    StartProduct(findings);
    findings.Expect(PowerOnIsSettled(20), "the service clears ISPOWERON within 20 s of its start");
    findings.ExpectText(Behavior(findings), before + " " + std::to_string(JOB_TRIGGER_POWER_ON),
                        "what is recorded of the user's behaviour (10 is a power-on)");
}

void HearsOfTheDisplay(Findings& findings) {
    StartProduct(findings);
    if (SleepsWithItsDisplay()) {
        findings.Impossible("this machine has Modern Standby: it would sleep, until somebody wakes it");
    }
    const Display display;
    if (display.state() != 1) {
        findings.Impossible("the console's display is not on: Windows says " + std::to_string(display.state()));
    }
    SwitchDisplay(false);
    const bool wentOff = display.Becomes(0, 15);
    WriteRegDword(kLocalMachine, kProductKey, L"ISPOWERON", 1);
    SwitchDisplay(true);
    const bool wentOn = display.Becomes(1, 15);
    if (!wentOff || !wentOn) {
        WriteRegDword(kLocalMachine, kProductKey, L"ISPOWERON", 0);
        findings.Impossible(wentOff ? "the display did not go on again" : "the display did not go off when asked to");
    }
    findings.Expect(PowerOnIsSettled(20), "the service clears ISPOWERON when the display goes on");
}

}  // namespace zorvalis::acceptance
