// The registry between processes: what wakes a waiter, and the handles that reads and writes leave open.
#include <windows.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "part.h"
#include "platform/registry.h"
#include "platform/windows/wide.h"
#include "running_program.h"
#include "steps_machine.h"

namespace zorvalis::acceptance {
namespace {

constexpr auto kRoot = platform::RegistryRoot::local_machine;
constexpr wchar_t kKey[] = L"SOFTWARE\\zorv-acceptance-registry";

void RemoveKey() {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
}

struct Key {
    Key() {
        RemoveKey();
        platform::write_registry_string(kRoot, kKey, L"Text", L"first");
    }
    ~Key() { RemoveKey(); }
};

// Key below the kit's, value, text, and how often; a count above one is appended to the text.
int Write(const std::vector<std::string>& arguments) {
    const int count = std::stoi(arguments.at(3));
    const std::wstring key = kKey + platform::to_wide(arguments.at(0));
    for (int i = 0; i < count; ++i) {
        const std::wstring text = platform::to_wide(arguments.at(2)) + (count > 1 ? std::to_wstring(i) : L"");
        if (!platform::write_registry_string(kRoot, key, platform::to_wide(arguments.at(1)), text)) {
            return 1;
        }
    }
    return 0;
}
const Part kWrite("registry-write", Write);

// Whether a watch that is armed now wakes a waiter within some seconds, who begins to wait before or after `change`.
// One that does not wake is woken by a change of another value.
template <class Change>
bool Wakes(Change change, bool waitsFirst = true) {
    platform::RegistryWatch watch;
    if (!watch.arm(kRoot, kKey)) {
        return false;
    }
    if (!waitsFirst) {
        change();
    }
    std::promise<void> woken;
    std::future<void> wake = woken.get_future();
    std::thread waiter([&] {
        watch.wait();
        woken.set_value();
    });
    if (waitsFirst) {
        change();
    }
    const bool woke = wake.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    static int round = 0;
    if (!woke) {
        platform::write_registry_dword(kRoot, kKey, L"End", ++round);
    }
    waiter.join();
    return woke;
}

bool WriteElsewhere(const std::string& key, const std::string& value, const std::string& text) {
    RunningProgram child(PartCommand("registry-write", {key, value, text, "1"}));
    std::string output;
    DWORD code = 1;
    return child.Wait(30, output, code) && code == 0;
}

void Notification(Findings& findings) {
    const Key key;
    findings.Expect(Wakes([] { WriteElsewhere("", "Text", "second"); }), "another process's write wakes a waiter");
    findings.Expect(Wakes([] { WriteElsewhere("\\Below", "Text", "third"); }), "so does one below the key");
    findings.Expect(Wakes([] { platform::delete_registry_value(kRoot, kKey, L"Text"); }), "so does a deletion");
    platform::write_registry_string(kRoot, kKey, L"Text", L"same");
    findings.Saw(Wakes([] { WriteElsewhere("", "Text", "same"); }) ? "writing the same data again wakes a waiter"
                                                                   : "writing the same data again wakes nobody");
    findings.Expect(Wakes([] { WriteElsewhere("", "Text", "early"); }, false),
                    "a change before the wait is not missed");
}

void ManyWrites(Findings& findings) {
    const Key key;
    constexpr int kWriters = 4;
    constexpr int kWrites = 1000;
    std::vector<std::unique_ptr<RunningProgram>> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(std::make_unique<RunningProgram>(
            PartCommand("registry-write", {"", "Text" + std::to_string(i), "write ", std::to_string(kWrites)})));
    }
    // Waits in turn, as the reload loop does, until it has seen what each writer wrote last.
    int wakes = 0;
    int complete = 0;
    const ULONGLONG limit = ::GetTickCount64() + 60000;
    while (complete < kWriters && ::GetTickCount64() < limit) {
        platform::RegistryWatch watch;
        if (!watch.arm(kRoot, kKey)) {
            findings.Fail("the key cannot be watched");
        }
        complete = 0;
        for (int i = 0; i < kWriters; ++i) {
            wchar_t text[64] = {};
            DWORD size = sizeof text;
            ::RegGetValueW(HKEY_LOCAL_MACHINE, kKey, (L"Text" + std::to_wstring(i)).c_str(), RRF_RT_REG_SZ, nullptr,
                           text, &size);
            complete += text == L"write " + std::to_wstring(kWrites - 1) ? 1 : 0;
        }
        if (complete < kWriters) {
            watch.wait();
            ++wakes;
        }
    }
    findings.ExpectNumber(complete, kWriters, "the waiter has seen the last write of each process");
    findings.Saw(std::to_string(kWriters * kWrites) + " writes, " + std::to_string(wakes) + " wakes");
}

DWORD HandleCount() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

void Handles(Findings& findings) {
    if (HandleCount() == 0) {
        findings.Impossible("Windows does not count this process's handles");
    }
    const Key key;
    constexpr int kCalls = 2000;
    constexpr long long kOthers = 50;  // Windows opens some of its own meanwhile
    const auto grownBy = [](auto call) {
        const DWORD before = HandleCount();
        for (int i = 0; i < kCalls; ++i) {
            call(i);
        }
        return static_cast<long long>(HandleCount()) - before;
    };
    const auto waits = grownBy([](int i) {
        platform::RegistryWatch watch;
        watch.arm(kRoot, kKey);
        platform::write_registry_dword(kRoot, kKey, L"Number", i);
        watch.wait();
    });
    std::wstring text;
    const auto reads = grownBy([&](int) { platform::read_registry_string(kRoot, kKey, L"Text", text); });
    const auto failures = grownBy([&](int) { platform::read_registry_string(kRoot, kKey, L"Missing", text); });
    // Kept: a call that succeeds leaves its key open.
    const auto tell = [&](long long grown, long long wanted, const std::string& what) {
        findings.Expect(grown >= wanted && grown < wanted + kOthers,
                        what + " open: " + std::to_string(grown) + " of " + std::to_string(kCalls) + " calls");
    };
    tell(reads, kCalls, "each read leaves one handle");
    tell(waits, kCalls, "a write and a wait leave one handle");
    tell(failures, 0, "a read that fails leaves none");
}

}  // namespace

std::vector<Step> RegistrySteps() {
    return {
        {"7.14", "A waiter in the registry hears of other processes' changes", Notification, 60, RemoveKey, false},
        {"7.15", "Thousands of writes at once lose no change", ManyWrites, 120, RemoveKey, false},
        {"7.16", "Handles grow by one for each read or write that succeeds, and by none for a wait", Handles, 60,
         RemoveKey, false},
    };
}

}  // namespace zorvalis::acceptance
