// The small helpers that everything stands on: numbers, texts, times, files, the registry's sentinel, JSON.
#include <gtest/gtest.h>

#include "base/number.h"
#include "common/code_page.h"
#include "common/file_log.h"
#include "common/log.h"
#include "common/time.h"
#include "common/wide_to_utf8.h"
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
    const std::string none = "invalid: invalid ? argument";
    const std::string range = "range: ? argument out of range";
    const struct {
        const char* text;
        std::string narrow;
        std::string wide;
    } cases[] = {{" \t\n\v\f\r-7 days", "-7", "-7"},
                 {"+0012", "12", "12"},
                 {"2147483647", "2147483647", "2147483647"},
                 {"2147483648", range, "2147483648"},
                 {"-2147483648", "-2147483648", "-2147483648"},
                 {"-2147483649x", range, "-2147483649"},
                 {"9223372036854775807", range, "9223372036854775807"},
                 {"9223372036854775808", range, range},
                 {"-9223372036854775808", range, "-9223372036854775808"},
                 {"-9223372036854775809", range, range},
                 {"", none, none},
                 {"x1", none, none},
                 {"- 1", none, none},
                 {"+-1", none, none}};
    for (const auto& one : cases) {
        const auto expected = [](std::string words, const char* parser) {
            const std::size_t at = words.find('?');
            return at == std::string::npos ? words : words.replace(at, 1, parser);
        };
        const std::wstring text = WidenBytes(one.text);
        EXPECT_EQ(Outcome([&] { return std::to_string(ParseInt32(text)); }), expected(one.narrow, "stoi")) << one.text;
        EXPECT_EQ(Outcome([&] { return std::to_string(ParseInt64(text)); }), expected(one.wide, "stoll")) << one.text;
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
    EXPECT_EQ(Utf82Unicode("gr\xFC"), L"");
    EXPECT_EQ(Utf82Unicode("gr\xC3\xBC\xC3\x9F"), L"gr\u00FC\u00DF") << "an earlier failure does not linger";
    EXPECT_EQ(WideByte2Ansi(L"gr\u00FC\u20AC"), "gr\xFC\x80");
    EXPECT_EQ(Utf8ToAnsi("\xC3\xBC"), "\xFC");
    EXPECT_EQ(Utf8ToAnsi("\xFC"), "");
    EXPECT_EQ(WideToUtf8(L"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(WideToUtf8(L""), "");
    EXPECT_STREQ(AnsiToWideBuffer("plain").get(), L"plain");
    EXPECT_EQ(WidenBytes("\xFF"), L"\u00FF");
    EXPECT_EQ(NarrowBytes(L"\u00FF\u0080 x"), "\xFF\x80 x");
}

TEST(Time, IsTicksSince1601ForRealDatesOnly) {
    const struct {
        const char* text;
        std::uint64_t ticks;  // 0: no date
    } cases[] = {{"1970-1-1", 116444736000000000},
                 {"2026-11-12 09:08:07.006", 134389480870060000},
                 {"2024-02-29 23:59:59", 133537247990000000},
                 {"30827-12-31", 9223149024000000000},
                 {"2023-02-29", 0},
                 {"2026-00-01", 0},
                 {"2026-04-30 24:00:00", 0},
                 {"2026-04-30 23:60:00", 0},
                 {"2026-04-30 23:59:60", 0},
                 {"1600-12-31", 0},
                 {"30828-01-01", 0},
                 {"", 0}};
    for (const auto& one : cases) {
        std::uint64_t ticks = 0;
        EXPECT_EQ(SystemTimeToTicks(ParseSystemTime(one.text), ticks), one.ticks != 0) << one.text;
        EXPECT_EQ(ticks, one.ticks) << one.text;
    }
}

TEST(Time, IsWrittenInLocalTimeWithLeadingZerosButUnpaddedInTheFileLog) {
    const TestMachine machine;
    const std::int64_t time = SetClock(2027, 3, 4, 5, 6, 7);
    EXPECT_EQ(EpochTextToTimeString(std::to_string(time)), "2027-03-04 05:06:07");
    EXPECT_TRUE(NowTimeString().starts_with("2027-03-04 05:06:"));
    EXPECT_EQ(TodayDateString(), "2027/03/04");
    WriteTestLog("first");
    WriteTestLog("second %s");
    const std::string path = std::string(kProductFolder) + "DebugLog\\Testlog.txt";
    std::string log = read_text(path);
    std::erase(log, '\r');  // line ends are the side's own
    EXPECT_EQ(log.substr(0, 13), "2027-3-4 5:6:");
    EXPECT_NE(log.find(" : first\n2027-3-4 5:6:"), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with(" : second %s\n")) << log;
    ASSERT_TRUE(platform::remove_file(path) && platform::create_folder(path));
    WriteTestLog("nowhere");
}

TEST(Time, FollowsTheZoneOfTheMoment) {
    const TimeZone zone("AAA-5");
    for (const auto& [name, text] : {std::pair{"AAA-5", "1970-01-02 05:00:00"}, {"BBB3", "1970-01-01 21:00:00"}}) {
        TimeZone::Set(name);
        EXPECT_EQ(EpochTextToTimeString("86400"), text);
        std::tm local{};
        local.tm_year = 70;
        local.tm_mday = 2;
        local.tm_hour = name[3] == '-' ? 5 : -3;
        EXPECT_EQ(platform::local_seconds(local), 86400) << name;
        EXPECT_EQ(local.tm_mday, name[3] == '-' ? 2 : 1);
    }
#ifndef _WIN32  // Wine knows no summer time of such a zone
    TimeZone::Set("CCC5DDD");
    std::tm summer{};
    summer.tm_year = 130;
    summer.tm_mon = 6;
    summer.tm_mday = 1;
    EXPECT_EQ(platform::local_seconds(summer), 1909108800) << "by summer time";
#endif
}

TEST(CoreFiles, AreRemovedButNotSubfoldersAndWhatLiesInThem) {
    const TestMachine machine;
    RemoveAllFilesInFolder(kDataFolder);  // a missing folder does no harm
    CreateSqliteDBFolder();
    const std::string sub = std::string(kDataFolder) + "sub";
    const std::string outer = std::string(kDataFolder) + "outer";
    ASSERT_TRUE(platform::create_folder(sub));
    write_text(sub + "\\inner", "kept");
    write_text(outer, "three");
    EXPECT_EQ(GetFileSize(outer), 5);
    RemoveAllFilesInFolder(kDataFolder);
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{"sub"});
    EXPECT_EQ(read_text(sub + "\\inner"), "kept");
    EXPECT_EQ(GetFileSize(outer), -1);
}

TEST(CoreFiles, LieBesideAnExecutableWhoseNameHas22Characters) {
    const TestMachine machine;
    EXPECT_EQ(getCurrentPath(), machine.bin_folder());
    platform::set_module_path(L"C:\\other\\0123456789012345678901.exe");
    EXPECT_EQ(getCurrentPath(), "C:\\other\\0123") << "the count is what is cut";
    platform::set_module_path(L"short.exe");
    EXPECT_EQ(getCurrentPath(), "");
    wchar_t path[9];
    EXPECT_EQ(platform::module_file_name(path, 9), 0) << "no room for the terminator";
}

TEST(JsonDoor, RaisesTheSystemsKindsOfErrorInBareWords) {
    for (const char* broken :
         {"", "{", "{\"a\": 1,}", "nul", "\"\xFF\"", "1e999x", "[1e999, 01e999]", "[1e999, 1e]", "[1] x"}) {
        EXPECT_EQ(Outcome([&] { return DumpJson(ParseJson(broken)); }).substr(0, 8), "invalid:") << broken;
    }
    const auto text = [](const char* json) {
        return Outcome([&] { return ParseJson(json).at("key").get<std::string>(); });
    };
    EXPECT_EQ(text(R"({"key": "word"})"), "word");
    EXPECT_EQ(text(R"({"key": 1})"), "domain: type must be string, but is number");
    EXPECT_EQ(text(R"({"key": null})"), "domain: type must be string, but is null");
    EXPECT_EQ(text("{}").substr(0, 6), "range:");
    const std::string huge(400, '7');
    EXPECT_EQ(DumpJson(ParseJson("[1e400,-1.5E+999,{\"1e999\":[1e-999," + huge + "]},\"\\\"1e999\",1e308]")),
              R"([null,null,{"1e999":[0.0,null]},"\"1e999",1e+308])");
}

TEST(JsonDoor, RefusesADocumentNestedTooDeeply) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_EQ(DumpJson(ParseJson(nested(512))), nested(512));
    EXPECT_THROW(ParseJson(nested(513)), std::invalid_argument);
    EXPECT_THROW(ParseJson(nested(100000)), std::invalid_argument);
}

TEST(JsonDoor, WritesEveryByteAsItIsInTheCompactFormWithSortedKeys) {
    Json tree = ParseJson(R"({"z": [1, -2.5, true, null, "\u00fc\n\""], "a": {"k\u00e4": {}}})");
    EXPECT_EQ(DumpJson(tree), "{\"a\":{\"k\xC3\xA4\":{}},\"z\":[1,-2.5,true,null,\"\xC3\xBC\\n\\\"\"]}");
    tree = {{"\xFC", "model \xE4\xFF\x80"}};
    EXPECT_EQ(DumpJson(tree), "{\"\xFC\":\"model \xE4\xFF\x80\"}");
}

}  // namespace
}  // namespace zorvalis
