// The small helpers that everything stands on: numbers, texts, times, files, the registry's sentinel, JSON.
#include <gtest/gtest.h>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/number.h"
#include "common/registry.h"
#include "common/text.h"
#include "common/time.h"
#include "platform/files.h"
#include "platform/module.h"
#include "store/db_file.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

// The value as text, or the error's kind and words.
template <class Action>
std::string Outcome(Action action) {
    try {
        return action();
    } catch (const std::invalid_argument& error) {
        return std::string("invalid: ") + error.what();
    } catch (const std::out_of_range& error) {
        return std::string("range: ") + error.what();
    } catch (const std::domain_error& error) {
        return std::string("domain: ") + error.what();
    }
}

TEST(Number, IsReadFromTheStartOfATextOrRaisesInTheSystemsWords) {
    const char* const kNone = "none";
    const char* const kRange = "range";
    const struct {
        const char* text;
        const char* narrow;
        const char* wide;
    } cases[] = {
        {"42", "42", "42"},
        {" \t\n\v\f\r-7 days", "-7", "-7"},
        {"+0012", "12", "12"},
        {"2147483647", "2147483647", "2147483647"},
        {"-2147483648", "-2147483648", "-2147483648"},
        {"2147483648", kRange, "2147483648"},
        {"-2147483649x", kRange, "-2147483649"},
        {"9223372036854775807", kRange, "9223372036854775807"},
        {"-9223372036854775808", kRange, "-9223372036854775808"},
        {"9223372036854775808", kRange, kRange},
        {"-9223372036854775809", kRange, kRange},
        {"99999999999999999999999999", kRange, kRange},
        {"", kNone, kNone},
        {"  ", kNone, kNone},
        {"x1", kNone, kNone},
        {"- 1", kNone, kNone},
        {"+-1", kNone, kNone},
        {"ERROR_READREG", kNone, kNone},
    };
    const auto words = [&](const char* expected, const std::string& parser) {
        return expected == kNone    ? "invalid: invalid " + parser + " argument"
               : expected == kRange ? "range: " + parser + " argument out of range"
                                    : expected;
    };
    for (const auto& one : cases) {
        const std::wstring wide = WidenBytes(one.text);
        EXPECT_EQ(Outcome([&] { return std::to_string(ParseInt32(wide)); }), words(one.narrow, "stoi")) << one.text;
        EXPECT_EQ(Outcome([&] { return std::to_string(ParseInt64(wide)); }), words(one.wide, "stoll")) << one.text;
    }
}

TEST(Text, IsSplitWithEmptyFieldsInsideButNotAtItsEnd) {
    using Fields = std::vector<std::string>;
    EXPECT_EQ(SplitString<char>("2019/1/2", '/'), (Fields{"2019", "1", "2"}));
    EXPECT_EQ(SplitString<char>(";;x;", ';'), (Fields{"", "", "x"}));
    EXPECT_EQ(SplitString<char>("a;;", ';'), (Fields{"a", ""}));
    EXPECT_EQ(SplitString<char>("", ';'), Fields{});
}

TEST(Text, ThatCannotBeConvertedIsEmpty) {
    EXPECT_EQ(Utf82Unicode("gr\xC3\xBC\xC3\x9F"), L"gr\u00FC\u00DF");
    EXPECT_EQ(Utf82Unicode("gr\xFC"), L"");
    EXPECT_EQ(Utf82Unicode(""), L"");
    EXPECT_EQ(Utf82Unicode("good again"), L"good again") << "an earlier failure does not linger";
    EXPECT_EQ(WideByte2Ansi(L"gr\u00FC\u20AC"), "gr\xFC\x80");
    EXPECT_EQ(Utf8ToAnsi("\xC3\xBC"), "\xFC");
    EXPECT_EQ(Utf8ToAnsi("\xFC"), "");
    EXPECT_EQ(WideToUtf8(L"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(WideToUtf8(L""), "");
    EXPECT_STREQ(AnsiToWideBuffer("plain").get(), L"plain");
    EXPECT_EQ(NarrowBytes(WidenBytes("\xFF\x80 x")), "\xFF\x80 x");
}

TEST(Time, IsTicksSince1601ForRealDatesOnly) {
    const struct {
        const char* text;
        std::uint64_t ticks;  // 0: no date
    } cases[] = {
        {"1970-01-01 00:00:00.000", 116444736000000000},
        {"1970-1-1", 116444736000000000},
        {"2026-11-12 09:08:07.006", 134389480870060000},
        {"2024-02-29 23:59:59", 133537247990000000},
        {"1601-01-01 00:00:01", 10000000},
        {"30827-12-31 00:00:00", 9223149024000000000},
        {"2023-02-29", 0},
        {"2026-13-01", 0},
        {"2026-00-01", 0},
        {"2026-04-31", 0},
        {"2026-04-30 24:00:00", 0},
        {"2026-04-30 23:60:00", 0},
        {"2026-04-30 23:59:60", 0},
        {"1600-12-31", 0},
        {"30828-01-01", 0},
        {"", 0},
    };
    for (const auto& one : cases) {
        std::uint64_t ticks = 0;
        EXPECT_EQ(SystemTimeToTicks(ParseSystemTime(one.text), ticks), one.ticks != 0) << one.text;
        EXPECT_EQ(ticks, one.ticks) << one.text;
    }
}

TEST(Time, IsWrittenInLocalTimeWithLeadingZeros) {
    const TestMachine machine;
    const std::int64_t time = SetClock(2027, 3, 4, 5, 6, 7);
    EXPECT_EQ(EpochTextToTimeString(std::to_string(time)), "2027-03-04 05:06:07");
    EXPECT_TRUE(NowTimeString().starts_with("2027-03-04 05:06:")) << NowTimeString();
    EXPECT_EQ(TodayDateString(), "2027/03/04");
    EXPECT_THROW(EpochTextToTimeString("soon"), std::invalid_argument);
}

TEST(RegistryText, IsASentinelForEveryFailedRead) {
    const TestMachine machine;
    EXPECT_EQ(Value(L"Missing"), L"ERROR_READREG");
    ASSERT_TRUE(WriteRegString(kLocalMachine, kProductKey, L"Text", L""));
    ASSERT_TRUE(WriteRegDword(kLocalMachine, kProductKey, L"Number", 4294967295));
    EXPECT_EQ(Value(L"Text"), L"");
    EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"Number"), L"4294967295");
    EXPECT_EQ(Value(L"Number"), L"ERROR_READREG");
    EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"Text"), L"ERROR_READREG");
    EXPECT_TRUE(DeleteRegValue(kLocalMachine, kProductKey, L"Text"));
    EXPECT_FALSE(DeleteRegValue(kLocalMachine, kProductKey, L"Text"));
    EXPECT_EQ(Value(L"Text"), L"ERROR_READREG");
    EXPECT_TRUE(DeleteRegKey(kLocalMachine, kProductKey));
    EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"Number"), L"ERROR_READREG");
}

TEST(CoreFiles, AreRemovedButNotSubfoldersAndWhatLiesInThem) {
    const TestMachine machine;
    RemoveAllFilesInFolder(kDataFolder);  // a missing folder does no harm
    CreateSqliteDBFolder();
    const std::string sub = std::string(kDataFolder) + "sub";
    ASSERT_TRUE(platform::create_folder(sub));
    write_text(sub + "\\inner", "kept");
    write_text(std::string(kDataFolder) + "outer", "three");
    EXPECT_EQ(GetFileSize(std::string(kDataFolder) + "outer"), 5);
    EXPECT_EQ(GetFileSize(sub), -1);
    RemoveAllFilesInFolder(kDataFolder);
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{"sub"});
    EXPECT_EQ(read_text(sub + "\\inner"), "kept");
    EXPECT_EQ(GetFileSize(std::string(kDataFolder) + "outer"), -1);
}

TEST(CoreFiles, LieBesideAnExecutableWhoseNameHas22Characters) {
    const TestMachine machine;
    EXPECT_EQ(getCurrentPath(), machine.bin_folder());
    platform::set_module_path(L"C:\\other\\0123456789012345678901.exe");
    EXPECT_EQ(getCurrentPath(), "C:\\other\\0123") << "the count is what is cut";
    platform::set_module_path(L"short.exe");
    EXPECT_EQ(getCurrentPath(), "");
}

TEST(FileLog, AppendsLinesWithTheLocalTimeUnpadded) {
    const TestMachine machine;
    SetClock(2027, 3, 4, 5, 6, 2);
    WriteTestLog("first");
    WriteTestLog("second %s");
    const std::string log = read_text(std::string(kProductFolder) + "DebugLog\\Testlog.txt");
    EXPECT_EQ(log.substr(0, 14), "2027-3-4 5:6:2");
    EXPECT_EQ(log.substr(14, 10), " : first\n2") << log;
    EXPECT_TRUE(log.ends_with(" : second %s\n")) << log;
    ASSERT_TRUE(platform::remove_file(std::string(kProductFolder) + "DebugLog\\Testlog.txt"));
    ASSERT_TRUE(platform::create_folder(std::string(kProductFolder) + "DebugLog\\Testlog.txt"));
    WriteTestLog("nowhere");
}

TEST(JsonDoor, RaisesTheSystemsKindsOfErrorInBareWords) {
    const auto parse = [](const std::string& text) {
        return Outcome([&] { return DumpJson(ParseJson(text)); }).substr(0, 8);
    };
    for (const char* broken : {"", "{", "{\"a\": 1,}", "nul", "\"\xFF\"", "1e999", "[1] x", "\"\\ud800\""}) {
        EXPECT_EQ(parse(broken), "invalid:") << broken;
    }
    const auto text = [](const char* json) {
        return Outcome([&] { return ParseJson(json)["key"].get<std::string>(); });
    };
    EXPECT_EQ(text(R"({"key": "word"})"), "word");
    EXPECT_EQ(text(R"({"key": 1})"), "domain: type must be string, but is number");
    EXPECT_EQ(text(R"({"key": null})"), "domain: type must be string, but is null");
    EXPECT_EQ(text(R"({"key": [true]})"), "domain: type must be string, but is array");
    EXPECT_EQ(Outcome([] { return ParseJson("{}").at("key").get<std::string>(); }).substr(0, 6), "range:");
}

TEST(JsonDoor, RefusesADocumentNestedTooDeeply) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_EQ(DumpJson(ParseJson(nested(512))), nested(512));
    EXPECT_THROW(ParseJson(nested(513)), std::invalid_argument);
    EXPECT_THROW(ParseJson(std::string(100000, '[')), std::invalid_argument);
    std::string objects;
    for (int depth = 0; depth < 100000; ++depth) {
        objects += "{\"a\":";
    }
    EXPECT_THROW(ParseJson(objects), std::invalid_argument);
}

TEST(JsonDoor, WritesEveryByteAsItIsInTheCompactFormWithSortedKeys) {
    Json tree = ParseJson(R"({"z": [1, -2.5, true, null, "\u00fc\n\""], "a": {"k\u00e4": {}}})");
    EXPECT_EQ(DumpJson(tree), "{\"a\":{\"k\xC3\xA4\":{}},\"z\":[1,-2.5,true,null,\"\xC3\xBC\\n\\\"\"]}");
    tree = Json::object();
    tree["\xFC"] = "model \xE4\xFF\x80";
    EXPECT_EQ(DumpJson(tree), "{\"\xFC\":\"model \xE4\xFF\x80\"}");
}

}  // namespace
}  // namespace zorvalis
