// The platform floor, the same on both sides.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <thread>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file_lock.h"
#include "platform/files.h"
#include "platform/library.h"
#include "platform/lock.h"
#include "platform/registry.h"
#include "platform/rpc_contexts.h"
#include "platform/text.h"
#include "support/machine.h"

namespace platform {
namespace {

constexpr auto kRoot = RegistryRoot::local_machine;
constexpr wchar_t kKey[] = L"SOFTWARE\\Zorv\\Test";

std::wstring read_text_value(const std::wstring& value) {
    std::wstring data = L"(none)";
    read_registry_string(kRoot, kKey, value, data);
    return data;
}

TEST(Registry, BindsAValueToOneType) {
    const TestMachine machine;
    std::wstring text = L"kept";
    std::uint32_t number = 7;
    ASSERT_TRUE(write_registry_string(kRoot, kKey, L"Text", L"1"));
    EXPECT_FALSE(read_registry_string(kRoot, kKey, L"Texts", text));
    ASSERT_TRUE(write_registry_dword(kRoot, kKey, L"Number", 4294967295));
    EXPECT_FALSE(read_registry_string(kRoot, kKey, L"Number", text));
    EXPECT_FALSE(read_registry_dword(kRoot, kKey, L"Text", number));
    EXPECT_EQ(text, L"kept");
    EXPECT_EQ(number, 7U);
    EXPECT_TRUE(read_registry_dword(kRoot, kKey, L"Number", number));
    EXPECT_EQ(number, 4294967295U);
    ASSERT_TRUE(write_registry_string(kRoot, kKey, L"NUMBER", L"now text"));
    EXPECT_EQ(read_text_value(L"number"), L"now text");
    ASSERT_TRUE(write_registry_string(kRoot, kKey, L"gr\u00F6\u00DFe", L"12"));
    EXPECT_EQ(read_text_value(L"GR\u00D6\u00DFE"), L"12");
}

TEST(Registry, GivesEveryTextBackUpTo254Units) {
    const TestMachine machine;
    std::wstring pairs;
    for (int i = 0; i < 127; ++i) {
        pairs += L"\U0001F50B";
    }
    for (const std::wstring& text : {std::wstring(), std::wstring(L"\n"), std::wstring(L"a\r\n"), std::wstring(L"a\r"),
                                     std::wstring(L" \t\u20AC "), std::wstring(254, L'x'), pairs}) {
        ASSERT_TRUE(write_registry_string(kRoot, kKey, L"Text", text));
        EXPECT_EQ(read_text_value(L"Text"), text);
    }
    for (const std::wstring& text : {std::wstring(255, L'x'), pairs + L"x"}) {
        ASSERT_TRUE(write_registry_string(kRoot, kKey, L"Text", text));
        EXPECT_EQ(read_text_value(L"Text"), L"(none)");
    }
}

// A change that is missed shows as a test that does not end.
TEST(RegistryWatch, WakesForEveryKindOfChangeAtAnyDepth) {
    const TestMachine machine;
    const std::wstring deep = L"SOFTWARE\\Zorv\\Test\\A\\B";
    ASSERT_TRUE(write_registry_dword(kRoot, deep, L"Old", 1));
    const std::vector<std::function<bool()>> changes = {
        [] { return write_registry_dword(kRoot, kKey, L"New", 1); },
        [&] { return write_registry_dword(kRoot, deep, L"Old", 2); },
        [&] { return delete_registry_value(kRoot, deep, L"Old"); },
        [&] { return write_registry_dword(kRoot, deep + L"\\C", L"Value", 1); },
        [&] { return delete_registry_key(kRoot, deep + L"\\C"); },
    };
    for (const auto& change : changes) {
        RegistryWatch watch;
        ASSERT_TRUE(watch.arm(kRoot, L"software\\zorv\\test"));
        EXPECT_TRUE(change());
        watch.wait();
    }
    RegistryWatch watch;
    EXPECT_FALSE(watch.arm(kRoot, L"SOFTWARE\\Zorv\\Missing"));
    watch.wait();
    ASSERT_TRUE(watch.arm(kRoot, kKey));
    std::thread writer([] { write_registry_dword(kRoot, kKey, L"New", 2); });
    watch.wait();
    writer.join();
}

bool had_by_another_thread(Lock& lock) {
    bool had = false;
    std::thread([&] {
        had = lock.wait(20000);
        if (had) {
            lock.release();
        }
    }).join();
    return had;
}

TEST(Lock, BelongsToItsThreadForAsManyReleasesAsWaits) {
    const TestMachine machine;
    set_clock({0, 0.001});
    Lock lock;
    EXPECT_TRUE(lock.wait(0));
    EXPECT_TRUE(lock.wait(1));
    EXPECT_FALSE(had_by_another_thread(lock));
    std::atomic<bool> had{false};
    std::thread patient([&] {
        had = lock.wait(0);
        lock.release();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    lock.release();
    std::thread([&] { lock.release(); }).join();  // not the owner's
    EXPECT_FALSE(had_by_another_thread(lock) || had);
    lock.release();
    patient.join();
    EXPECT_TRUE(had && had_by_another_thread(lock));
}

TEST(FileLock, KeepsOthersOutForAsLongAsTheyWait) {
    const TestMachine machine;
    const auto had_by_another = [](const char* name) {
        bool had = false;
        std::thread([&] { had = FileLock(name, 1).held(); }).join();
        return had;
    };
    FileLock first("x.db", 0);
    {
        const FileLock again("x.db", 0);
        EXPECT_TRUE(first.held() && again.held());
    }
    EXPECT_FALSE(had_by_another("x.db"));
    EXPECT_TRUE(had_by_another("y.db"));
    first = FileLock("sub\\y.db", 0);
    EXPECT_TRUE(first.held() && had_by_another("x.db"));
}

TEST(Lock, CountsTheWaitOnAnAbandonedLockAsFailedButGivesOwnership) {
    const TestMachine machine;
    set_clock({0, 0.001});
    Lock lock;
    std::thread([&] {
        lock.wait(0);
        lock.wait(0);
    }).join();
    EXPECT_FALSE(lock.wait(60000));
    EXPECT_FALSE(had_by_another_thread(lock));
    EXPECT_TRUE(lock.wait(0));
    lock.release();
    lock.release();
    EXPECT_TRUE(had_by_another_thread(lock));
}

// Each context's flag says that it is open.
TEST(RpcContexts, AreTakenOnceAndEndUnderNoCall) {
    constexpr int kThreads = 8;
    static std::atomic<int> opened, closed;
    opened = closed = 0;
    const auto open = [] {
        return std::make_shared<OpenContext>(
            []() -> void* {
                ++opened;
                return new std::atomic<bool>(true);
            },
            [](void* context) {
                auto* const flag = static_cast<std::atomic<bool>*>(context);
                EXPECT_TRUE(flag->exchange(false));
                delete flag;
                ++closed;
            });
    };
    RpcContexts contexts(1000);
    std::array<std::atomic<int>, 1001> takers{};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (std::uint64_t number = 1; number <= 1000; ++number) {
                contexts.add(open());
                const auto used = contexts.find(number / 2);
                takers[number] += contexts.take(number) != nullptr ? 1 : 0;
                EXPECT_TRUE(used == nullptr || *static_cast<std::atomic<bool>*>(used->get()));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(*std::max_element(takers.begin(), takers.end()), 1);
    EXPECT_EQ(contexts.add(open()), 0U) << "most are never taken";
    for (std::uint64_t number = 1; number <= 1000 * kThreads; ++number) {
        contexts.take(number);
    }
    EXPECT_EQ(closed, opened);
    EXPECT_NE(contexts.add(open()), 1U) << "a number comes once";
}

TEST(Text, RefusesBytesThatAreNoUtf8) {
    for (const char* bytes : {"\x80", "a\xC3", "\xC3(", "\xC0\xAF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                              "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
        set_last_error(0);
        EXPECT_EQ(multi_byte_to_wide(kCodePageUtf8, bytes, -1, nullptr, 0), 0) << bytes;
        EXPECT_EQ(last_error(), kNoUnicodeTranslation) << bytes;
    }
    const char good[] = "A\xC3\xBC\xE2\x82\xAC\xF0\x9F\x94\x8B";
    const std::wstring wide = L"A\u00FC\u20AC\U0001F50B";
    wchar_t result[16];
    ASSERT_EQ(multi_byte_to_wide(kCodePageUtf8, good, -1, result, 16), static_cast<int>(wide.size() + 1));
    EXPECT_EQ(last_error(), 0U);
    EXPECT_EQ(result, wide);
    char back[16];
    ASSERT_EQ(wide_to_multi_byte(kCodePageUtf8, result, -1, back, 16), static_cast<int>(sizeof good));
    EXPECT_STREQ(back, good);
}

TEST(Text, TakesAnsiForCodePage1252) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    wchar_t wide[256];
    ASSERT_EQ(multi_byte_to_wide(kCodePageAnsi, bytes.c_str(), -1, wide, 256), 256);
    EXPECT_EQ(wide[0x80 - 1], 0x20AC);
    EXPECT_EQ(wide[0x81 - 1], 0x81);
    EXPECT_EQ(wide[0x9F - 1], 0x178);
    EXPECT_EQ(wide[0xFC - 1], 0xFC);
    char back[256];
    ASSERT_EQ(wide_to_multi_byte(kCodePageAnsi, wide, -1, back, 256), 256);
    EXPECT_EQ(back, bytes);
    ASSERT_EQ(wide_to_multi_byte(kCodePageAnsi, L"\u4E2D\U0001F50B", -1, back, 256), 4);
    EXPECT_STREQ(back, "???");
}

TEST(Files, KeepFilesAndFoldersApart) {
    const TestMachine machine;
    const std::string folder = "C:\\ProgramData\\Zorv\\";
    create_folder("C:\\ProgramData");
    EXPECT_FALSE(folder_exists(folder));
    EXPECT_FALSE(create_folder(folder + "a\\b"));
    EXPECT_TRUE(create_folder(folder));
    EXPECT_FALSE(create_folder(folder));
    EXPECT_TRUE(create_folder(folder + "sub"));
    write_text(folder + "one", "1");
    write_text(folder + "\\two", "2");
    EXPECT_TRUE(file_exists(folder + "two"));
    EXPECT_FALSE(file_exists(folder + "sub"));
    EXPECT_FALSE(folder_exists(folder + "one"));
    EXPECT_EQ(open_file(folder + "sub", "rb"), nullptr);
    EXPECT_FALSE(remove_file(folder + "sub"));
    EXPECT_FALSE(rename_file(folder + "one", folder + "two"));
    EXPECT_EQ(read_text(folder + "two"), "2");
    EXPECT_TRUE(rename_file(folder + "one", folder + "three"));
    EXPECT_TRUE(remove_file(folder + "two"));
    EXPECT_FALSE(remove_file(folder + "two"));

    std::vector<FolderEntry> entries;
    ASSERT_EQ(list_folder(folder, entries), 0U);
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_TRUE(entries[0].name == "sub" && entries[0].folder);
    EXPECT_TRUE(entries[1].name == "three" && !entries[1].folder);
    EXPECT_EQ(list_folder("C:\\ProgramData\\Zorv\\missing\\", entries), 3U);

    std::error_code no_links;  // under Wine
    std::filesystem::create_symlink("nowhere", native_path(folder + "link"), no_links);
    EXPECT_EQ(path_exists(folder + "link"), !no_links);
}

TEST(SharedLibrary, HasNoSymbolsWhenMissingOrDamaged) {
    TestMachine machine;
    EXPECT_FALSE(SharedLibrary(L"ZorvWinIo64.dll").is_open());
    machine.install_library();
    EXPECT_TRUE(SharedLibrary(L"ZorvWinIo64.dll").is_open());
    for (const char* name : {"ZorvWinIo64.dll", "ZorvWinIo64.so"}) {
        std::error_code other_side;
        std::filesystem::resize_file(machine.bin_folder() + name, 30000, other_side);
    }
    const SharedLibrary damaged(L"ZorvWinIo64.dll");
    EXPECT_FALSE(damaged.is_open());
    EXPECT_EQ(damaged.function<void()>("InitializeWinIo"), nullptr);
}

TEST(Clock, KnowsWhichTimesHaveACalendarForm) {
    std::tm local{};
    EXPECT_TRUE(local_time(1763712000, local));
    EXPECT_EQ(local.tm_year, 125);
    for (const std::int64_t seconds : {std::int64_t{-1000000}, std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_FALSE(local_time(seconds, local));
        EXPECT_EQ(local.tm_year, 0);
        EXPECT_EQ(local.tm_mday, 0);
    }
}

}  // namespace
}  // namespace platform
