#include <gtest/gtest.h>
#include <sqlite3.h>
#ifndef _WIN32
#include <sys/resource.h>
#endif

#include <csignal>
#include <filesystem>
#include <thread>

#include "collection/data_collector.h"
#include "settings/setting_file_manager.h"
#include "store/db_file.h"
#include "store/sqlite_vfs.h"
#include "store/telemetry_db.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

const MetricCatalogue kColumns = {{"local_time", "DATE", 0, 3, "NA", 1, 0, 0},
                                  {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
                                  {"fan", "STRING", 0, 3, "NA", 1, 0, 0},
                                  {"cpu_usage", "DOUBLE", 0, 3, "NA", 1, 0, 0},
                                  {"other", "BLOB", 0, 3, "NA", 1, 0, 0}};
constexpr char kFile[] = "T.db";

std::string PathOf(const std::string& name) {
    return kDataFolder + name;
}

void Init() {
    initDB(kFile, buildCreateTable("T", kColumns, 4));
}

void Insert(const SampleRow& row) {
    insert(kFile, buildInsert("T", kColumns, row, 4));
}

std::string Rows(const TestMachine& machine) {
    std::string text;
    for (const auto& row : machine.query(kFile, "SELECT * FROM T")) {
        for (const std::string& field : row) {
            text += field + "|";
        }
    }
    return text;
}

std::string Transformed(std::string bytes, std::uint8_t key) {
    for (char& byte : bytes) {
        byte = static_cast<char>(byte ^ key);
    }
    return bytes;
}

TEST(Statements, AreBuiltByteForByte) {
    EXPECT_EQ(buildCreateTable("T", kColumns, 5),
              "CREATE TABLE IF NOT EXISTS T ( local_time DATE, freq INTEGER, fan STRING, cpu_usage DOUBLE, "
              "other BLOB);");
    EXPECT_EQ(buildCreateTable("T", kColumns, 2), "CREATE TABLE IF NOT EXISTS T ( local_time DATE, freq INTEGER);");
    EXPECT_EQ(buildInsert("T", kColumns, {"it's", "six", "2410", "12.500000", "x"}, 5),
              "INSERT INTO T ( local_time, freq, fan, cpu_usage, other) VALUES( 'it's', six, '2410', 12.500000, );");
    EXPECT_EQ(buildInsert("T", kColumns, {"NULL", "NULL", "null", "NULL", "NULL"}, 4),
              "INSERT INTO T ( local_time, freq, fan, cpu_usage) VALUES( NULL, NULL, 'null', NULL);");
}

TEST(DatabaseFile, RestsTransformedAndAloneAfterEachCycle) {
    const TestMachine machine;
    Init();
    EXPECT_EQ(totalRecord(kFile, "T"), 0);
    Insert({"d", "1", "f", "0.5"});
    Insert({"NULL", "NULL", "NULL", "NULL"});
    Init();
    EXPECT_EQ(totalRecord(kFile, "T"), 2);
    EXPECT_EQ(machine.data_files(), Names{kFile});
    EXPECT_EQ(Rows(machine), "d|1|f|0.5|NULL|NULL|NULL|NULL|");

    const std::string resting = read_text(PathOf(kFile));
    TelemetryDb handle;
    handle.path = PathOf(kFile);
    write_text(PathOf("T.db.cached.temp"), "of an interrupted cycle");
    decryptDBFast(handle, kDbKey);
    EXPECT_EQ(read_text(handle.cachedPath), Transformed(resting, kDbKey));
    EXPECT_TRUE(read_text(handle.cachedPath).starts_with("SQLite format 3"));
    EXPECT_EQ(machine.data_files(), (Names{kFile, "T.db.cached"}));
    encryptDBFast(handle, kDbKey);
    EXPECT_EQ(machine.data_files(), Names{kFile});
    encryptDBFast(handle, kDbKey);  // nothing to put back
    EXPECT_EQ(read_text(PathOf(kFile)), resting);
}

TEST(DatabaseFile, StartsFromTheRestingFileWhateverAnInterruptedCycleLeft) {
    const TestMachine machine;
    Init();
    Insert({"d", "1", "f", "0.5"});
    for (const char* ending : {".cached", ".cached.temp", ".cached-journal"}) {
        write_text(PathOf(kFile) + ending, std::string(600, '\0'));
    }
    EXPECT_EQ(totalRecord(kFile, "T"), 1);
    EXPECT_EQ(machine.data_files(), Names{kFile});
    write_text(PathOf(kFile) + ".cached", Transformed(read_text(PathOf(kFile)), kDbKey));
    ASSERT_TRUE(platform::rename_file(PathOf(kFile), PathOf(kFile) + ".cached.temp"));  // between delete and rename
    EXPECT_EQ(totalRecord(kFile, "T"), 9999);
    write_text(PathOf(kFile), "");  // a file without bytes is a new database
    Init();
    EXPECT_EQ(totalRecord(kFile, "T"), 0);
    ASSERT_TRUE(platform::remove_file(PathOf(kFile)) && platform::create_folder(PathOf(kFile)));
    Init();
    EXPECT_EQ(totalRecord(kFile, "T"), 9999) << "a folder in the file's place is no file";
    EXPECT_TRUE(platform::folder_exists(PathOf(kFile)));
}

TEST(DatabaseFile, ThatIsDamagedCostsEveryFileOfTheFolder) {
    for (const std::size_t place : {0, 4096}) {  // no database at all, or one bad page
        const TestMachine machine;
        Init();
        Insert({"d", "1", "f", "0.5"});
        std::string bytes = read_text(PathOf(kFile));
        ASSERT_EQ(bytes.size(), 8192U);
        write_text(PathOf(kFile), bytes.replace(place, 50, 50, 'x'));
        write_text(PathOf("BGFS.db"), "other");
        ASSERT_TRUE(platform::create_folder(PathOf("sub")));
        Init();
        EXPECT_EQ(machine.data_files(), (Names{kFile, "sub"}));
        EXPECT_EQ(totalRecord(kFile, "T"), 0);
        ExpectEventLog({"validate file false"});
    }
}

TEST(DatabaseFile, ThatIsDamagedSparesTheCyclesThatAreOpen) {
    const TestMachine machine;
    TelemetryDb open;
    ASSERT_EQ(openDB("A.db", open), 0);
    ASSERT_EQ(sqlite3_exec(open.db, "CREATE TABLE T (a); INSERT INTO T VALUES (7)", nullptr, nullptr, nullptr), 0);
    const platform::FileLock held("C.db", 0);
    for (const bool ofAnotherProcess : {false, true}) {  // a thread stands for one: locks are a thread's own
        write_text(PathOf("C.db.cached"), "open elsewhere");
        write_text(PathOf("D.db.cached"), "left behind");
        write_text(PathOf(kFile), std::string(4096, 'x'));
        ofAnotherProcess ? std::thread(Init).join() : Init();
        EXPECT_EQ(machine.data_files(),
                  ofAnotherProcess ? (Names{"A.db.cached", "C.db.cached", kFile}) : (Names{"A.db.cached", kFile}));
    }
    closeDB(open);
    EXPECT_EQ(machine.query("A.db", "SELECT a FROM T"), (std::vector<Names>{{"7"}}));
}

std::string Number(std::uint32_t value) {  // as a journal holds it
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

TEST(Sqlite, ObeysNoJournalThatNamesAnother) {
    const TestMachine machine;
    PrepareSqlite();
    const std::string path = machine.bin_folder() + "x.db", victim = machine.bin_folder() + "victim";
    const auto run = [&](const char* sql) {
        sqlite3* database = nullptr;
        sqlite3_open(path.c_str(), &database);
        const int result = sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
        sqlite3_close(database);
        return result;
    };
    ASSERT_EQ(run("PRAGMA page_size = 4096; CREATE TABLE T (a); INSERT INTO T VALUES (7)"), SQLITE_OK);
    write_text(victim, "precious");
    const std::string magic = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";
    std::uint32_t sum = 0;
    for (const char c : victim) {
        sum += static_cast<std::uint32_t>(c);
    }
    std::string journal = magic + Number(0) + Number(0) + Number(1) + Number(512) + Number(4096);  // cuts to one page
    journal.resize(512);
    journal += Number(262145) + victim + Number(static_cast<std::uint32_t>(victim.size())) + Number(sum) + magic;
    write_text(path + "-journal", journal);
    EXPECT_EQ(run("SELECT a FROM T"), SQLITE_OK);
    EXPECT_EQ(read_text(path).size(), 8192U);
    EXPECT_TRUE(platform::file_exists(victim));
    EXPECT_FALSE(platform::file_exists(path + "-journal"));
}

#ifndef _WIN32
TEST(DatabaseFile, TakesNoRowInACycleThatAnotherProcessHasOvertaken) {
    const TestMachine machine;
    Init();
    TelemetryDb handle;
    ASSERT_EQ(openDB(kFile, handle), 0);
    const std::string copy = read_text(handle.cachedPath);
    ASSERT_TRUE(platform::remove_file(handle.cachedPath));
    write_text(handle.cachedPath, copy);
    EXPECT_EQ(sqlite3_exec(handle.db, "INSERT INTO T (freq) VALUES (1)", nullptr, nullptr, nullptr), SQLITE_READONLY);
    closeDB(handle);
}

TEST(DatabaseFile, IsNotUsedThroughALink) {
    const TestMachine machine;
    Init();
    const fs::path data = platform::native_path(PathOf("")), elsewhere = machine.bin_folder() + "elsewhere";
    for (fs::path place = data / kFile; place.filename() != "ProgramData"; place = place.parent_path()) {
        fs::rename(place, elsewhere);
        fs::create_symlink(elsewhere, place);
        EXPECT_EQ(totalRecord(kFile, "T"), 9999) << place;
        fs::remove(place);
        fs::rename(elsewhere, place);
        EXPECT_EQ(totalRecord(kFile, "T"), 0) << place;
    }
    write_text(elsewhere.string(), R"({"another's": 1})");
    fs::create_symlink(elsewhere, data.parent_path().parent_path() / "setting.json");
    const SettingFileManager settings;
    EXPECT_TRUE(settings.LoadJsonFile("setting.json").is_null());
    settings.SaveSettingFile("{}");
    EXPECT_EQ(read_text(elsewhere.string()), R"({"another's": 1})");
    EXPECT_EQ(settings.LoadJsonFile("setting.json"), Json::object());
    const std::string words = "data path leads through a link, file not used";
    ExpectEventLog({words, words, words, words, words});
}

TEST(DatabaseFile, IsReplacedByNothingThatIsNotWhole) {
    const TestMachine machine;
    Init();
    Insert({"d", "1", "f", "0.5"});
    const std::string resting = read_text(PathOf(kFile));
    TelemetryDb handle;
    ASSERT_EQ(openDB(kFile, handle), 0);
    ASSERT_EQ(sqlite3_exec(handle.db, "DELETE FROM T", nullptr, nullptr, nullptr), 0);
    const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{4096, limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    closeDB(handle);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, ignored);
    EXPECT_TRUE(read_text(PathOf(kFile)) == resting);
    EXPECT_EQ(totalRecord(kFile, "T"), 1);
}
#endif

TEST(DatabaseFile, StaysWholeBesideWhatCannotBeRemoved) {
    const TestMachine machine;
    Init();
    const std::string resting = read_text(PathOf(kFile));
    write_text(PathOf("BGFS.db"), "other");
    for (const char* left : {".cached", ".cached.temp", ".cached-journal"}) {
        ASSERT_TRUE(platform::create_folder(PathOf(kFile) + left));
        Insert({"d", "1", "f", "0.5"});
        EXPECT_EQ(totalRecord(kFile, "T"), 9999) << left;
        EXPECT_EQ(read_text(PathOf(kFile)), resting) << left;
        fs::remove(platform::native_path(PathOf(kFile) + left));
    }
    EXPECT_EQ(read_text(PathOf("BGFS.db")), "other") << "a sound file is no bad one";
    ExpectEventLog({});
}

TEST(DatabaseFile, IsJudgedByTheLastRowOfItsCheck) {
    char text[][16] = {"integrity_check", "ok", "row missing"};
    char* names[] = {text[0], text[0]};
    const auto judged = [&](int before, int count, char* value) {
        char* values[] = {value, value};
        int valid = before;
        EXPECT_EQ(integritycheckCallback(&valid, count, values, names), 0);
        return valid;
    };
    EXPECT_EQ(judged(0, 1, text[1]), 1);
    EXPECT_EQ(judged(1, 1, text[2]), 0);
    EXPECT_EQ(judged(1, 1, nullptr), 0);
    EXPECT_EQ(judged(1, 2, text[2]), 1);
}

TEST(Store, CountsNothingThatItCannotCount) {
    const TestMachine machine;
    EXPECT_EQ(totalRecord(kFile, "T"), 9999) << "there is no folder";
    Insert({"d", "1", "f", "0.5"});
    EXPECT_FALSE(platform::folder_exists(kDataFolder)) << "only initDB and openDB make it";
    ExpectEventLog({});
    Init();
    const std::string resting = read_text(PathOf(kFile));
    EXPECT_EQ(totalRecord(kFile, "Missing"), 9999);
    EXPECT_EQ(read_text(PathOf(kFile)), resting);
    ExpectEventLog({" [SQ][totalRec] Error executing statemant"});
}

TEST(Store, LosesOneRowForAnInsertThatFails) {
    const TestMachine machine;
    Init();
    for (const SampleRow& row : {SampleRow{"d", "1", "f", "0.5"},
                                 {"d", "2", "O'Neil", "0.5"},
                                 {"d", "many", "f", "1"},
                                 {"d", "4", "f", "nan"},
                                 {"d", "5", "f", "1.5"}}) {
        Insert(row);
    }
    EXPECT_EQ(Rows(machine), "d|1|f|0.5|d|5|f|1.5|");
    EXPECT_EQ(machine.data_files(), Names{kFile});
    const std::string words = " [SQ][insert] Error executing statemant on";
    ExpectEventLog({words, words, words});
}

TEST(Store, ReachesNoSecondFile) {
    const TestMachine machine;
    Init();
    const std::string path = "'" + platform::native_path(kDataFolder) + "stolen'";
    for (const std::string& sql : {"VACUUM INTO " + path, "ATTACH " + path + " AS s; CREATE TABLE s.t (a)"}) {
        Insert({"d", "1", "f', 1); " + sql + "; --", "1"});
    }
    EXPECT_EQ(Rows(machine), "d|1|f|1.0|d|1|f|1.0|") << "a quote changes what an insert says";
    EXPECT_EQ(machine.data_files(), Names{kFile});
    const std::string words = " [SQ][insert] Error executing statemant on";
    ExpectEventLog({words, words});
}

TEST(Store, RunsNothingThatAFileBrings) {
    const TestMachine machine;
    const std::string endless = "WITH RECURSIVE r(a) AS (SELECT 1 UNION ALL SELECT a FROM r) SELECT count(a) FROM r";
    initDB(kFile, "CREATE TABLE V (a); CREATE VIEW T AS " + endless + "; CREATE TRIGGER t BEFORE INSERT ON V BEGIN " +
                      "INSERT INTO V " + endless + "; END");
    EXPECT_EQ(totalRecord(kFile, "T"), 9999);
    insert(kFile, "INSERT INTO V VALUES (1)");
    EXPECT_EQ(totalRecord(kFile, "V"), 1);
    ExpectEventLog({" [SQ][totalRec] Error executing statemant"});
}

TEST(Store, OpensACycleUnderAnotherKey) {
    const TestMachine machine;
    TelemetryDb handle;
    for (const std::uint8_t key : {std::uint8_t{0x21}, std::uint8_t{0}}) {
        const std::string name = std::to_string(key) + ".db";
        ASSERT_EQ(openDB(name, handle, key), 0);
        ASSERT_EQ(sqlite3_exec(handle.db, "CREATE TABLE T (a); INSERT INTO T VALUES (7)", nullptr, nullptr, nullptr),
                  0);
        closeDB(handle, key);
        EXPECT_EQ(handle.db, nullptr);
        EXPECT_TRUE(Transformed(read_text(PathOf(name)), key != 0 ? key : kDbKey).starts_with("SQLite format 3"));
        ASSERT_EQ(openDB(name, handle, key), 0);
        EXPECT_EQ(sqlite3_exec(handle.db, "INSERT INTO T SELECT a FROM T", nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(sqlite3_changes(handle.db), 1);
        closeDB(handle, key);
    }
    EXPECT_EQ(machine.data_files(), (Names{"0.db", "33.db"}));
    EXPECT_NE(openDB("..\\x.db", handle, 0), 0);
    EXPECT_EQ(handle.db, nullptr);
    ExpectEventLog({" [SQ][open] Error Opening "});
}

TEST(DatabaseFile, IsNamedByClassDeviceAndMonthAndRegisteredWhenNew) {
    Notebook machine;
    const auto name = [](DbClass dbClass, std::int32_t trigger) {
        DataCollector collector(CollectionKind::Thermal);
        collector.dbName = LetterOf(dbClass);
        collector.dbClass = dbClass;
        collector.triggerType = trigger;
        setDbPath(collector);
        return collector.dbName;
    };
    SetClock(2026, 11, 12);
    const std::string november = "O_00112233445566778899aabbccddeeff_202611_V1-0.db";
    EXPECT_EQ(name(DbClass::periodic, 9), november);
    EXPECT_EQ(Value(L"ODb_Filename"), WidenBytes(november + ";1;2026-11-12"));
    const std::string event = name(DbClass::event, 22);
    EXPECT_EQ(Value(L"EDb_Filename"), WidenBytes(event + ";2;2026-11-12"));
    const std::string hardware = name(DbClass::wmi_event, 23);
    EXPECT_EQ(Value(L"WDb_Filename"), WidenBytes(hardware + ";3;2026-11-12"));

    initDB(november, buildCreateTable("T", kColumns, 4));
    SetValue(L"ODb_Filename", L"");
    EXPECT_EQ(name(DbClass::periodic, 9), november);
    EXPECT_EQ(Value(L"ODb_Filename"), L"") << "the file is there already";
    SetClock(2026, 12, 1, 0, 0, 0);
    EXPECT_EQ(name(DbClass::periodic, 25), "O_00112233445566778899aabbccddeeff_202612_V1-0.db");
    EXPECT_TRUE(Value(L"ODb_Filename").ends_with(L"_202612_V1-0.db;1;2026-12-01"));
    EXPECT_EQ(machine.data_files(), Names{november});

    machine.change_hardware(R"({"GPNV_RandomUUID": "fail"})");
    WriteRegString(kLocalMachine, kConfigKey, L"RandomUUID", std::wstring(43, L'a') + L"-");
    EXPECT_EQ(getAutoDBFileName(), std::string(43, 'a') + "_202612_V1-0");
    WriteRegString(kLocalMachine, kConfigKey, L"RandomUUID", std::wstring(44, L'a'));
    EXPECT_THROW(getAutoDBFileName(), std::out_of_range) << "50 bytes hold the device, a separator and the month";
}

}  // namespace
}  // namespace zorvalis
