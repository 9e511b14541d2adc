// The stand-in machine's forms on disk, through which other programs take part.
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

#include "platform/clock.h"
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
    ASSERT_TRUE(write_registry_string(kRoot, kKey, L"Text", L"\u00FC"));
    EXPECT_EQ(read_text(key_folder() + "Text"), "REG_SZ\n\u00FC\n");
    const std::map<std::string, const wchar_t*> texts = {{"REG_SZ\ntwo\nlines\n\n", L"two\nlines\n"},
                                                         {"REG_SZ", L""},
                                                         {"REG_SZ\nbad \xFF", nullptr},
                                                         {"REG_EXPAND_SZ\nother", nullptr}};
    for (const auto& [file, expected] : texts) {
        write_text(key_folder() + "Text", file);
        std::wstring data;
        EXPECT_EQ(read_registry_string(kRoot, kKey, L"text", data), expected != nullptr) << file;
        EXPECT_EQ(data, expected != nullptr ? expected : L"") << file;
    }
    for (const auto& [data, sound] : {std::pair{"4294967295\n", true}, {"4294967296", false}, {"-1", false}}) {
        write_text(key_folder() + "Number", std::string("REG_DWORD\n") + data);
        std::uint32_t number = 0;
        EXPECT_EQ(read_registry_dword(kRoot, kKey, L"Number", number), sound) << data;
    }
    EXPECT_FALSE(write_registry_dword(kRoot, kKey, L"../Up", 1));
    EXPECT_EQ(names_in(key_folder()), (std::set<std::string>{"Number", "Text"}));
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
    const auto other = another_process([&] { return write(0); });
    std::atomic<bool> sound{true};
    std::thread thread([&] { sound = write(1); });
    EXPECT_TRUE(write(2));
    thread.join();
    EXPECT_TRUE(sound && other());
    EXPECT_EQ(names_in(key_folder()).size(), 51U);
    for (const auto& key : fs::directory_iterator(key_folder())) {
        EXPECT_TRUE(!key.is_directory() || names_in(key.path()).size() == 1) << key;
    }
}

TEST(StandInMachine, OpensNoLibraryThatIsCutShort) {
    TestMachine machine;
    machine.install_library();
    fs::resize_file(machine.bin_folder() + "ZorvWinIo64.so", 1000);
    EXPECT_FALSE(SharedLibrary(L"ZorvWinIo64.dll").is_open());
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
    for (const char* broken : {"{", R"({"offset": "1", "wait": 0.01})"}) {
        write_text(file, broken);  // half written, perhaps: what it said before holds
        EXPECT_GE(now_seconds(), before + 173800) << broken;
        EXPECT_EQ(scaled_wait(1000), 5000) << broken;
    }
    std::filesystem::remove(file);
    EXPECT_LT(now_seconds(), before + 1060);
    EXPECT_EQ(scaled_wait(1000), 500000);
}

}  // namespace
}  // namespace platform
