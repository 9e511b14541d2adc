// The stand-in machine's forms on disk, through which other programs take part.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <thread>

#include "common/json.h"
#include "platform/clock.h"
#include "platform/event_log.h"
#include "platform/library.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "support/machine.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr auto kRoot = RegistryRoot::local_machine;
constexpr wchar_t kKey[] = L"SOFTWARE\\Zorv\\Test";

std::string key_folder() {
    return machine_folder() + "/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv/Test/";
}

std::set<std::string> names_in(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// Runs `body` in another process; the handle waits for it and tells whether it went well.
std::function<bool()> another_process(const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body() ? 0 : 1);
    }
    return [child] {
        int status = -1;
        return ::waitpid(child, &status, 0) == child && status == 0;
    };
}

TEST(StandInRegistry, ReadsWhatAPersonWrites) {
    const TestMachine machine;
    fs::create_directories(key_folder());
    const std::map<std::string, const wchar_t*> texts = {
        {"REG_SZ\nsome text", L"some text"},
        {"REG_SZ\nsome text\n", L"some text"},
        {"REG_SZ\ntwo\nlines\n\n", L"two\nlines\n"},
        {"REG_SZ\n", L""},
        {"REG_SZ", L""},
        {std::string("REG_SZ\nup to\0here", 17), L"up to"},
        {"REG_SZ\nbad \xFF", nullptr},
        {"REG_EXPAND_SZ\nother", nullptr},
        {" REG_SZ\nother", nullptr},
        {"", nullptr},
    };
    for (const auto& [file, expected] : texts) {
        write_text(key_folder() + "Text", file);
        std::wstring data;
        EXPECT_EQ(read_registry_string(kRoot, kKey, L"text", data), expected != nullptr) << file;
        EXPECT_EQ(data, expected != nullptr ? expected : L"") << file;
    }
    const std::map<std::string, bool> numbers = {
        {"0", true},   {"4294967295\n", true}, {"4294967296", false}, {"-1", false},   {"+1", false},
        {"1 ", false}, {"0x1", false},         {"", false},           {"1\n\n", false}};
    for (const auto& [data, sound] : numbers) {
        write_text(key_folder() + "Number", "REG_DWORD\n" + data);
        std::uint32_t number = 0;
        EXPECT_EQ(read_registry_dword(kRoot, kKey, L"Number", number), sound) << data;
    }
    write_text(key_folder() + ".Hidden", "REG_SZ\nx");
    write_text(key_folder() + "Hex", "REG_BINARY\n\xFF");
    fs::create_directory(key_folder() + "Sub");
    std::wstring data;
    EXPECT_FALSE(read_registry_string(kRoot, kKey, L".Hidden", data));
    EXPECT_FALSE(read_registry_string(kRoot, kKey, L"Sub", data));
    std::vector<std::wstring> subkeys;
    std::vector<RegistryValue> values;
    ASSERT_TRUE(list_registry_key(kRoot, kKey, subkeys, values));
    EXPECT_EQ(subkeys, std::vector<std::wstring>{L"Sub"});
    ASSERT_EQ(values.size(), 3U);
    EXPECT_EQ(values[0].data, L"ff");
}

TEST(StandInRegistry, LeavesNothingBesideTheValues) {
    const TestMachine machine;
    ASSERT_TRUE(write_registry_string(kRoot, kKey, L"Text", L"\u00FC"));
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Number", 12));
    EXPECT_EQ(read_text(key_folder() + "Text"), "REG_SZ\n\u00FC\n");
    EXPECT_EQ(read_text(key_folder() + "Number"), "REG_DWORD\n12\n");
    fs::create_directory(key_folder() + "Taken");
    EXPECT_FALSE(write_registry_dword(kRoot, kKey, L"Taken", 1));
    for (const wchar_t* name : {L"", L".", L"..", L".dot", L"a/b", L"../Up"}) {
        EXPECT_FALSE(write_registry_dword(kRoot, kKey, name, 1));
        EXPECT_FALSE(write_registry_dword(kRoot, std::wstring(kKey) + L"\\" + name, L"Value", 1));
    }
    EXPECT_EQ(names_in(key_folder()), (std::set<std::string>{"Number", "Taken", "Text"}));
    EXPECT_EQ(names_in(machine_folder() + "/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv"), std::set<std::string>{"Test"});
}

TEST(StandInRegistry, KeepsOneFileForANameThatManyWriteAtOnce) {
    const TestMachine machine;
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Value", 1));
    const auto write = [](int salt) {
        bool sound = true;
        for (int i = 0; i < 100; ++i) {
            const bool capital = (i + salt) % 2 == 0;
            const std::wstring key = kKey + (capital ? std::wstring(L"\\KEY") : L"\\key") + std::to_wstring(i / 2);
            const wchar_t* const name = capital ? L"GUID" : L"guid";
            sound &= write_registry_string(kRoot, key, name, std::wstring(100 + salt, L'a' + salt));
            std::wstring data;
            sound &=
                read_registry_string(kRoot, key, name, data) && data == std::wstring(data[0] - L'a' + 100, data[0]);
        }
        return sound;
    };
    const auto first = another_process([&] { return write(0); });
    const auto second = another_process([&] { return write(1); });
    std::atomic<int> sound{0};
    std::vector<std::thread> threads;
    for (int salt = 2; salt < 5; ++salt) {
        threads.emplace_back([&, salt] { sound += write(salt) ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(first());
    EXPECT_TRUE(second());
    EXPECT_EQ(sound, 3);
    EXPECT_EQ(names_in(key_folder()).size(), 51U);
    for (const auto& key : fs::directory_iterator(key_folder())) {
        EXPECT_TRUE(!key.is_directory() || names_in(key.path()).size() == 1) << key;
    }
}

TEST(StandInRegistry, WritesAKeyThatIsDeletedAgainAndAgain) {
    const TestMachine machine;
    const auto deleter = another_process([] {
        for (int i = 0; i < 300; ++i) {
            delete_registry_key(kRoot, kKey);
        }
        return true;
    });
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Value", 1));
    }
    EXPECT_TRUE(deleter());
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Value", 1));
    EXPECT_EQ(names_in(key_folder()), std::set<std::string>{"Value"});
}

TEST(StandInRegistry, WakesForOtherProgramsButNotForTheirTemporaryFiles) {
    const TestMachine machine;
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Value", 1));
    ASSERT_TRUE(write_registry_dword(kRoot, std::wstring(kKey) + L"\\Sub", L"Value", 1));
    const std::vector<std::function<void()>> changes = {
        [] { write_text(key_folder() + "Value", "REG_DWORD\n1"); },  // the same data
        [] { fs::rename(key_folder() + "Value", key_folder() + "Sub/Other"); },
        [] { fs::remove(key_folder() + "Sub/Other"); },
        [] { fs::create_directory(key_folder() + "Sub/New"); },
        [] { fs::rename(key_folder() + "Sub", machine_folder() + "/away"); },
        [] { another_process([] { return write_registry_dword(kRoot, kKey, L"Value", 1); })(); },
        [] { fs::remove_all(key_folder()); },
    };
    for (const auto& change : changes) {
        RegistryWatch watch;
        ASSERT_TRUE(watch.arm(kRoot, kKey));
        change();
        watch.wait();
    }

    // Whoever wakes early does not find the value yet.
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Value", 1));
    RegistryWatch watch;
    ASSERT_TRUE(watch.arm(kRoot, kKey));
    std::uint32_t seen = 0;
    std::thread waiter([&] {
        watch.wait();
        read_registry_dword(kRoot, kKey, L"Value", seen);
    });
    for (int i = 0; i < 500; ++i) {
        write_text(key_folder() + ".Value.tmp", "REG_DWORD\n2");
        fs::rename(key_folder() + ".Value.tmp", key_folder() + ".Value");
    }
    fs::rename(key_folder() + ".Value", key_folder() + "Value");
    waiter.join();
    EXPECT_EQ(seen, 2U);
}

TEST(StandInMachine, OpensNoLibraryThatIsCutShort) {
    const TestMachine machine;
    Dl_info system{};
    ASSERT_NE(::dladdr(reinterpret_cast<void*>(&::getpid), &system), 0);
    const fs::path library = fs::path(machine.bin_folder()) / "copy.so";
    fs::copy_file(fs::canonical(system.dli_fname), library);
    for (const std::uintmax_t size : {fs::file_size(library) / 2, std::uintmax_t{1000}, std::uintmax_t{20}}) {
        fs::resize_file(library, size);
        EXPECT_FALSE(SharedLibrary(L"copy.dll").is_open()) << size;
    }
}

TEST(StandInMachine, KeepsAnEventLog) {
    const TestMachine machine;
    fs::remove_all(machine_folder());
    EXPECT_TRUE(report_event(L"Zorvalis", kEventWarning, L"Zorvalis", L" gr\u00FC\u00DFe \n"));
    EXPECT_TRUE(report_event(L"Zorvalis", kEventInformation, L"Zorvalis", L""));
    const std::string log = read_text(machine_folder() + "/eventlog.jsonl");
    const auto entry = zorvalis::ParseJson(log.substr(0, log.find('\n')));
    EXPECT_EQ(entry["type"], 2);
    EXPECT_EQ(entry["source"], "Zorvalis");
    EXPECT_EQ(entry["strings"], (std::vector<std::string>{"Zorvalis", " gr\u00FC\u00DFe \n"}));
    EXPECT_LT(std::abs(entry["time"].get<double>() - static_cast<double>(now_seconds())), 60);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
}

TEST(StandInMachine, HasAClockThatItsFileShifts) {
    const TestMachine machine;
    const std::string file = machine_folder() + "/clock.json";
    const std::int64_t before = now_seconds();
    set_clock({1000, 0.5});
    write_text(file, R"({"offset": 172800, "wait": 0.01})");
    EXPECT_GE(now_seconds(), before + 173800);
    EXPECT_LT(now_seconds(), before + 173860);
    EXPECT_EQ(scaled_wait(1000), 5000);
    for (const char* broken :
         {"{", "[]", R"({"offset": "1", "wait": 0.01})", R"({"wait": -1})", R"({"offset": 1e300})"}) {
        write_text(file, broken);  // half written, perhaps: what it said before holds
        EXPECT_GE(now_seconds(), before + 173800) << broken;
        EXPECT_EQ(scaled_wait(1000), 5000) << broken;
    }
    std::filesystem::remove(file);
    EXPECT_LT(now_seconds(), before + 1060);
    EXPECT_EQ(scaled_wait(1000), 500000);
}

TEST(StandInMachine, SaysWhyAFolderCannotBeTheMachine) {
    const TestMachine machine;
    const std::string folder = machine_folder();
    EXPECT_EQ(machine_problem(), "");
    const auto problem = [](const std::string& path) {
        ::setenv("ZORV_MACHINE", path.c_str(), 1);
        return machine_problem();
    };
    EXPECT_EQ(problem(folder + "/" + std::string(82 - folder.size(), 'x')), "");
    EXPECT_NE(problem(folder + "/" + std::string(83 - folder.size(), 'x')).find("too long"), std::string::npos);
    write_text(folder + "/file", "");
    EXPECT_NE(problem(folder + "/file").find("cannot be made"), std::string::npos);
    EXPECT_NE(problem(folder + "/file/below").find("cannot be made"), std::string::npos);

    const auto with = [](const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); };
    const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    ::unsetenv("ZORV_MACHINE");
    with("HOME", "/home/someone");
    EXPECT_EQ(machine_folder(), "/home/someone/.local/state/zorv-machine");
    with("XDG_STATE_HOME", "/state");
    EXPECT_EQ(machine_folder(), "/state/zorv-machine");
    ::unsetenv("XDG_STATE_HOME");
    with("HOME", home);
    with("ZORV_MACHINE", folder);
}

}  // namespace
}  // namespace platform
