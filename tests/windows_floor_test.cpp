// What only the Windows side shows: which handles stay open, the steps of a registry watch, the times of waits and
// timers, the trace and event log calls, which Wine takes without a word.
#include <windows.h>

#include <gtest/gtest.h>
#include <wmistr.h>

#include <evntrace.h>
#undef StartTrace  // the product has functions of these names
#undef StopTrace

#include <chrono>
#include <cstdarg>
#include <functional>
#include <sstream>

#include "common/log.h"
#include "common/version.h"
#include "platform/clock.h"
#include "platform/event_log.h"
#include "platform/files.h"
#include "platform/lock.h"
#include "platform/registry.h"
#include "support/machine.h"
#include "windows/recorded_calls.h"
#include "zorvalis.h"

namespace platform {
namespace {

constexpr auto kRoot = RegistryRoot::local_machine;
constexpr wchar_t kKey[] = L"SOFTWARE\\Zorv\\Test";

TEST(Registry, ClosesAKeyOnlyAfterAFailure) {
    const TestMachine machine;
    write_registry_string(kRoot, kKey, L"Text", L"a");
    write_registry_dword(kRoot, kKey, L"Number", 1);
    write_registry_string(kRoot, kKey, L"Long", std::wstring(255, L'x'));
    std::wstring text;
    std::uint32_t number = 0;
    std::vector<std::wstring> subkeys;
    std::vector<RegistryValue> values;
    const ImportHook hooks[] = {REAL(RegOpenKeyExW), REAL(RegCreateKeyExW), REAL(RegCloseKey)};
    const std::string to_read = "RegOpenKeyExW * * 0 20019 *";
    const std::string to_write = "RegOpenKeyExW * * 0 20006 *";
    const std::string create = "RegCreateKeyExW * * 0 null 0 f003f null * null";
    const std::string close = "RegCloseKey *";
    const auto read_text = [&](const wchar_t* value) {
        return [&text, value] { return read_registry_string(kRoot, kKey, value, text); };
    };
    const auto write_number = [](const std::wstring& key) {
        return [key] { return write_registry_dword(kRoot, key, L"Number", 2); };
    };
    const struct {
        const char* name;
        std::function<bool()> action;
        bool result;
        Calls calls;
    } cases[] = {
        {"a text", read_text(L"Text"), true, {to_read}},
        {"a number", [&] { return read_registry_dword(kRoot, kKey, L"Number", number); }, true, {to_read}},
        {"no such value", read_text(L"Missing"), false, {to_read, close}},
        {"the other type", read_text(L"Number"), false, {to_read, close}},
        {"too long", read_text(L"Long"), false, {to_read, close}},
        {"an old key", write_number(kKey), true, {to_write}},
        {"a new path", write_number(L"SOFTWARE\\Zorv\\New\\Path"), true, {to_write + " failed", create}},
        {"no such root", write_number(L"\\\\"), false, {to_write + " failed", create + " failed"}},
        {"a listing", [&] { return list_registry_key(kRoot, kKey, subkeys, values); }, true, {to_read, close}},
    };
    for (const auto& one : cases) {
        bool result = false;
        EXPECT_EQ(calls_of([&] { result = one.action(); }), one.calls) << one.name;
        EXPECT_EQ(result, one.result) << one.name;
    }
    HOOK(RegSetValueExW, [](HKEY, const wchar_t*, DWORD, DWORD, const BYTE*, DWORD) -> LONG { return 5; });
    EXPECT_EQ(calls_of(write_number(kKey)), (Calls{to_write, close}));
}

TEST(RegistryWatch, LeavesOpenOnlyWhatAFailedWaitOrCloseLeaves) {
    const TestMachine machine;
    write_registry_dword(kRoot, kKey, L"Number", 0);
    const std::string open = "RegOpenKeyExW * * 0 10 *";
    const std::string event = "CreateEventW null 1 0 null";
    const std::string notify = "RegNotifyChangeKeyValue * 1 f * 1";
    const std::string wait = "WaitForSingleObject * ffffffff";
    const std::string close_key = "RegCloseKey *";
    const std::string close_event = "CloseHandle *";
    const ImportHook hooks[] = {REAL(RegOpenKeyExW),       REAL(CreateEventW), REAL(RegNotifyChangeKeyValue),
                                REAL(WaitForSingleObject), REAL(RegCloseKey),  REAL(CloseHandle)};
    const Calls cases[] = {
        {open, event, notify, wait, close_key, close_event},
        {open},
        {open, event, close_key},
        {open, event, notify, close_event, close_key},
        {open, event, notify, wait},
        {open, event, notify, wait, close_key},
    };
    DWORD number = 0;
    for (failing = 0; failing < std::size(cases); ++failing) {
        const Calls made = calls_of([&] {
            RegistryWatch watch;
            if (watch.arm(kRoot, kKey)) {
                ++number;
                ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"Number", REG_DWORD, &number, sizeof number);
                watch.wait();
            }
        });
        EXPECT_EQ(made, cases[failing]) << failing;
    }
    failing = 0;
    EXPECT_EQ(calls_of([] { RegistryWatch().arm(kRoot, kKey); }), (Calls{open, event, notify, close_event, close_key}));
}

TEST(Lock, WaitsForTheScaledTimeAndZeroForEver) {
    const TestMachine machine;
    Lock lock;
    bool had = false;
    // The test library waits for locks of its own when an expectation fails.
    const Calls limits = calls_of([&] {
        HOOK(WaitForSingleObject, [](HANDLE, DWORD limit) -> DWORD {
            calls.push_back(hex(limit));
            return WAIT_TIMEOUT;
        });
        for (const double factor : {1.0, 0.5, 0.0, 1e9, 0.00001}) {
            set_clock({0, factor});
            had |= lock.wait(60000);
        }
        had |= lock.wait(0);
    });
    EXPECT_EQ(limits, (Calls{"ea60", "7530", "0", "fffffffe", "1", "ffffffff"}));
    EXPECT_FALSE(had);
    HOOK(CreateMutexW, [](SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) -> HANDLE { return nullptr; });
    Lock broken;
    EXPECT_FALSE(broken.wait(1));
    broken.release();
}

TEST(Files, NameAnyFileInUtf8) {
    const TestMachine machine;
    const std::string folder = machine.bin_folder();
    const std::string name = "\xC3\x84 \xE2\x82\xAC \xF0\x9F\x94\x8B";
    write_text(folder + name, "here");
    std::vector<FolderEntry> entries;
    ASSERT_EQ(list_folder(folder, entries), 0U);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, name);
    EXPECT_EQ(read_text(folder + name), "here");
    EXPECT_EQ(list_folder("", entries), 3U) << "never the drive's root";
    EXPECT_NE(list_folder(folder + "\xFF", entries), 0U);
}

HANDLE holder;
int naps, napsUntilFree;

TEST(Files, ThatAnotherProgramHoldsForAMomentAreWaitedFor) {
    const TestMachine machine;
    const std::string folder = machine.bin_folder(), from = folder + "from", to = folder + "to";
    HOOK(Sleep, [](DWORD) {
        if (++naps == napsUntilFree) {
            ::CloseHandle(holder);
        }
    });
    const std::function<bool()> acts[] = {[&] { return open_file(from, "rb") != nullptr; },
                                          [&] { return rename_file(from, to); }, [&] { return remove_file(from); }};
    for (const int free : {3, 100}) {
        for (const auto& act : acts) {
            remove_file(to);
            write_text(from, "");
            naps = 0;
            napsUntilFree = free;
            holder = ::CreateFileA(from.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
            EXPECT_EQ(act(), free == 3) << &act - acts;
            EXPECT_EQ(naps, free == 3 ? 3 : 9) << &act - acts;
            if (free == 100) {
                ::CloseHandle(holder);
            }
        }
    }
    naps = 0;
    write_text(to, "");
    EXPECT_FALSE(remove_file(folder) || remove_file(folder + "none") || open_file(folder, "rb") ||
                 rename_file(from, to));
    ::SetFileAttributesA(to.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(remove_file(to));
    ::SetFileAttributesA(to.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(naps, 0) << "that stays refused";
}

// The system's end of a trace session.
struct Session {
    WMIDPREQUEST callback = nullptr;
    void* context = nullptr;
    UCHAR level = 4;
    ULONG flags = 1;

    ULONG request(int code) {
        ULONG size = 0;
        return callback(static_cast<WMIDPREQUESTCODE>(code), context, &size, this);
    }
};
Session session;

std::string text_of(const GUID& guid) {
    return hex(guid.Data1) + "-" + hex(guid.Data2) + "-" + hex(guid.Data3) + "-" + hex(guid.Data4[0]) + ".." +
           hex(guid.Data4[7]);
}

ULONG register_guids(WMIDPREQUEST callback, void* context, const GUID* control, ULONG count,
                     TRACE_GUID_REGISTRATION* classes, const wchar_t* image, const wchar_t* resource,
                     TRACEHANDLE* registration) {
    calls.push_back("register " + text_of(*control) + " " + text_of(*classes->Guid) + " " + hex(count));
    EXPECT_TRUE(image == nullptr && resource == nullptr);
    session.callback = callback;
    session.context = context;
    *registration = 0x77;
    return 0;
}

ULONG trace_message(TRACEHANDLE logger, ULONG flags, const GUID* guid, USHORT number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const char* const text = va_arg(arguments, const char*);
    const std::size_t length = va_arg(arguments, std::size_t);
    EXPECT_EQ(va_arg(arguments, void*), nullptr) << "the end of the list";
    va_end(arguments);
    calls.push_back("message " + hex(logger) + " " + hex(flags) + " " + text_of(*guid) + " " + std::to_string(number) +
                    " [" + std::string(text, length).c_str() + "] " + std::to_string(length));
    return 0;
}

TEST(Trace, SendsWhatTheSessionOfTheMomentTakes) {
    using zorvalis::LogMessage;
    session = {};
    HOOK(RegisterTraceGuidsW, register_guids);
    HOOK(TraceMessage, trace_message);
    HOOK(GetTraceLoggerHandle, [](void* buffer) -> TRACEHANDLE { return buffer == &session ? 0xABCDEF123456 : 0; });
    HOOK(GetTraceEnableLevel, [](TRACEHANDLE logger) -> UCHAR { return logger == 0xABCDEF123456 ? session.level : 0; });
    HOOK(GetTraceEnableFlags, [](TRACEHANDLE logger) -> ULONG { return logger == 0xABCDEF123456 ? session.flags : 0; });
    HOOK(UnregisterTraceGuids, [](TRACEHANDLE registration) -> ULONG {
        calls.push_back("unregister " + hex(registration));
        return 0;
    });
    const std::string message = "message abcdef123456 2b 57b959a4-c260-3299-33..a4 ";

    EXPECT_EQ(calls_of([] { zorvalis::StartTrace(); }),
              (Calls{"register eb75ff2f-dde7-4f4d-8e..95 57b959a4-c260-3299-33..a4 1"}));
    EXPECT_EQ(calls_of([] {
                  LogMessage("no session");
                  EXPECT_EQ(session.request(4), 0U);
                  LogMessage("it's 100%s");
                  zorvalis::LogMessageW(L"\u20AC");
                  EXPECT_EQ(session.request(6), 0x57U);
                  session.level = 3;
                  session.request(4);
                  LogMessage("level 3");
                  session.level = 4;
                  session.flags = 0xFFFFFFFE;
                  session.request(4);
                  LogMessage("without the flag");
                  EXPECT_EQ(session.request(5), 0U);
                  LogMessage("disabled");
              }),
              (Calls{message + "10 [it's 100%s] 11", message + "11 [\xE2\x82\xAC] 4"}));
    EXPECT_EQ(calls_of([] { zorvalis::StopTrace(); }), (Calls{"unregister 77"}));
}

TEST(EventLog, WritesOneEntryOfTwoTextsOrLosesItQuietly) {
    const ImportHook hooks[] = {FAKE(RegisterEventSourceW), FAKE(ReportEventW), FAKE(DeregisterEventSource)};
    const Calls steps = {"RegisterEventSourceW null Zorvalis",
                         "ReportEventW 1 2 0 0 null 2 0 Zorvalis, InitWinIo fail  null", "DeregisterEventSource 1"};
    for (failing = 0; failing < 3; ++failing) {
        EXPECT_EQ(calls_of([] { zorvalis::ReportServiceEvent(L" InitWinIo fail ", zorvalis::kWarning); }),
                  failing == 1 ? Calls{steps[0]} : steps);
    }
    failing = 0;
    EXPECT_TRUE(calls_of([] { zorvalis::ReportServiceEvent(L"", zorvalis::kInformation); })[1].starts_with(
        "ReportEventW 1 4 "));
}

TEST(EventLog, HasATextInTheExecutableForItsEntries) {
    const ImportHook hooks[] = {FAKE(RegisterEventSourceW), FAKE(ReportEventW), FAKE(DeregisterEventSource)};
    const Calls steps = calls_of([] { zorvalis::ReportServiceEvent(L"UP", zorvalis::kWarning); });
    DWORD id = 1;
    ASSERT_EQ(std::sscanf(steps.at(1).c_str(), "ReportEventW 1 2 0 %lx", &id), 1) << steps[1];
    const HMODULE file = ::LoadLibraryExA(built("ZorvalisWinService.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    wchar_t product[] = L"Zorvalis", what[] = L"UP SUCCESS", text[100] = L"", *strings[] = {product, what};
    ::FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, file, id, 0, text, 100,
                     reinterpret_cast<va_list*>(strings));
    EXPECT_STREQ(text, L"Zorvalis: UP SUCCESS\r\n");
    ::FreeLibrary(file);
}

TEST(ExecutableFiles, TellTheirVersionAndTheProducts) {
    const std::string service = zorvalis::kServiceVersion, client = "1." + std::to_string(ZORVALIS_VERSION) + ".0.0";
    for (const auto& [name, version] : {std::pair{std::string("ZorvalisWinService.exe"), service},
                                        {"zorvctl.exe", service},
                                        {"zorvalis_client.dll", client}}) {
        std::string data(::GetFileVersionInfoSizeA(built(name).c_str(), nullptr), '\0');
        ::GetFileVersionInfoA(built(name).c_str(), 0, static_cast<DWORD>(data.size()), data.data());
        const auto value = [&data](const std::string& block) {
            char* found = nullptr;
            UINT size = 0;
            ::VerQueryValueA(data.data(), block.c_str(), reinterpret_cast<void**>(&found), &size);
            return found;
        };
        const std::string texts = "\\StringFileInfo\\040904B0\\";
        EXPECT_STREQ(value(texts + "FileVersion"), version.c_str()) << name;
        EXPECT_STREQ(value(texts + "ProductVersion"), service.c_str()) << name;
        const auto* const words = reinterpret_cast<const WORD*>(value("\\"));  // of VS_FIXEDFILEINFO
        ASSERT_NE(words, nullptr) << name;
        std::ostringstream numbers;
        numbers << words[5] << '.' << words[4] << '.' << words[7] << '.' << words[6];
        EXPECT_EQ(numbers.str(), version) << name;
    }
}

}  // namespace
}  // namespace platform
