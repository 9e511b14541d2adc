#include <gtest/gtest.h>
#include <sqlite3.h>

#include "collection/data_collector.h"
#include "common/files.h"
#include "common/registry.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

using Names = std::vector<std::string>;

const MetricCatalogue kColumns = {
    {"local_time", "DATE", 0, 3, "NA", 1, 0, 0}, {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
    {"fan", "STRING", 0, 3, "NA", 1, 0, 0},      {"cpu_usage", "DOUBLE", 0, 3, "NA", 1, 0, 0},
    {"other", "BLOB", 0, 3, "NA", 1, 0, 0},
};
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

std::string Transformed(std::string bytes, char key) {
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
    EXPECT_EQ(buildInsert("T", kColumns, {"2026-11-12 09:08:07", "6", "2410", "12.500000", "x"}, 5),
              "INSERT INTO T ( local_time, freq, fan, cpu_usage, other) VALUES( '2026-11-12 09:08:07', 6, '2410', "
              "12.500000, );");
    EXPECT_EQ(buildInsert("T", kColumns, {"NULL", "NULL", "null", "NULL", "NULL"}, 4),
              "INSERT INTO T ( local_time, freq, fan, cpu_usage) VALUES( NULL, NULL, 'null', NULL);");
    EXPECT_EQ(buildInsert("T", kColumns, {"it's"}, 1), "INSERT INTO T ( local_time) VALUES( 'it's');");
}

TEST(DatabaseFile, RestsTransformedAndAloneAfterEachCycle) {
    const TestMachine machine;
    Init();
    EXPECT_EQ(machine.data_files(), Names{kFile});
    EXPECT_EQ(totalRecord(kFile, "T"), 0);
    Insert({"d", "1", "f", "0.5"});
    Insert({"NULL", "NULL", "NULL", "NULL"});
    Init();
    EXPECT_EQ(totalRecord(kFile, "T"), 2);
    EXPECT_EQ(machine.data_files(), Names{kFile});
    EXPECT_EQ(Rows(machine), "d|1|f|0.5|NULL|NULL|NULL|NULL|");
    const std::string resting = read_text(PathOf(kFile));
    EXPECT_EQ(Transformed(resting.substr(0, 16), kDbKey), std::string("SQLite format 3\0", 16));

    TelemetryDb handle;
    handle.path = PathOf(kFile);
    decryptDBFast(handle, kDbKey);
    EXPECT_EQ(read_text(handle.cachedPath), Transformed(resting, kDbKey));
    encryptDBFast(handle, kDbKey);
    EXPECT_EQ(read_text(PathOf(kFile)), resting);
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
    ASSERT_TRUE(platform::rename_file(PathOf(kFile), PathOf(kFile) + ".cached.temp"));  // between delete and rename
    EXPECT_EQ(totalRecord(kFile, "T"), 9999);
    EXPECT_EQ(Rows(machine), "no such table: T|");
}

TEST(DatabaseFile, ThatIsEmptyIsANewDatabase) {
    const TestMachine machine;
    CreateSqliteDBFolder();
    write_text(PathOf(kFile), "");
    write_text(PathOf("BGFS.db"), "other");
    Init();
    Insert({"d", "1", "f", "0.5"});
    EXPECT_EQ(Rows(machine), "d|1|f|0.5|");
    EXPECT_EQ(machine.data_files(), (Names{"BGFS.db", kFile}));
}

TEST(DatabaseFile, ThatIsDamagedCostsEveryFileOfTheFolder) {
    for (const bool garbage : {true, false}) {
        const TestMachine machine;
        Init();
        Insert({"d", "1", "f", "0.5"});
        std::string bytes = read_text(PathOf(kFile));
        ASSERT_EQ(bytes.size(), 8192U);
        bytes.replace(garbage ? 0 : 4096, 50, 50, 'x');  // no database at all, or one bad page
        write_text(PathOf(kFile), bytes);
        write_text(PathOf("E_other.db"), "other");
        write_text(PathOf("BGFS.db"), "other");
        ASSERT_TRUE(platform::create_folder(PathOf("sub")));
        Init();
        EXPECT_EQ(machine.data_files(), (Names{kFile, "sub"}));
        EXPECT_EQ(Rows(machine), "") << "an empty table";
        ExpectEventLog({"validate file false"});
        Insert({"d", "2", "f", "0.5"});
        EXPECT_EQ(Rows(machine), "d|2|f|0.5|");
    }
}

TEST(DatabaseFile, IsJudgedByTheLastRowOfItsCheck) {
    const TestMachine machine;
    char name[] = "integrity_check";
    char ok[] = "ok";
    char bad[] = "row missing";
    char* names[] = {name, name};
    const auto judged = [&](int before, int count, char* value) {
        char* values[] = {value, value};
        int valid = before;
        EXPECT_EQ(integritycheckCallback(&valid, count, values, names), 0);
        return valid;
    };
    EXPECT_EQ(judged(0, 1, ok), 1);
    EXPECT_EQ(judged(1, 1, bad), 0);
    EXPECT_EQ(judged(1, 1, nullptr), 0);
    EXPECT_EQ(judged(1, 2, bad), 1);
}

TEST(DatabaseFile, IsNotMadeWhereAFolderLies) {
    const TestMachine machine;
    CreateSqliteDBFolder();
    ASSERT_TRUE(platform::create_folder(PathOf(kFile)));
    Init();
    Insert({"d", "1", "f", "0.5"});
    EXPECT_EQ(totalRecord(kFile, "T"), 9999);
    EXPECT_TRUE(platform::folder_exists(PathOf(kFile)));
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
    Insert({"d", "1", "f", "0.5"});
    Insert({"d", "2", "O'Neil", "0.5"});
    Insert({"d", "many", "f", "0.5"});
    Insert({"d", "4", "f", "nan"});
    Insert({"d", "5", "f", "1.5"});
    EXPECT_EQ(Rows(machine), "d|1|f|0.5|d|5|f|1.5|");
    EXPECT_EQ(machine.data_files(), Names{kFile});
    const std::string words = " [SQ][insert] Error executing statemant on";
    ExpectEventLog({words, words, words});
}

TEST(Store, OpensACycleUnderAnotherKey) {
    const TestMachine machine;
    for (const std::uint8_t key : {std::uint8_t{0x21}, std::uint8_t{0}}) {
        const std::string name = std::to_string(key) + ".db";
        TelemetryDb handle;
        ASSERT_EQ(openDB(name, handle, key), 0);
        ASSERT_EQ(sqlite3_exec(handle.db, "CREATE TABLE T (a); INSERT INTO T VALUES (7)", nullptr, nullptr, nullptr),
                  0);
        closeDB(handle, key);
        EXPECT_EQ(handle.db, nullptr);
        const char used = static_cast<char>(key != 0 ? key : kDbKey);
        EXPECT_EQ(Transformed(read_text(PathOf(name)), used).substr(0, 15), "SQLite format 3");
        ASSERT_EQ(openDB(name, handle, key), 0);
        EXPECT_EQ(sqlite3_exec(handle.db, "INSERT INTO T SELECT a FROM T", nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(sqlite3_changes(handle.db), 1);
        closeDB(handle, key);
    }
    EXPECT_EQ(machine.data_files(), (Names{"0.db", "33.db"}));
    ExpectEventLog({});
}

TEST(DatabaseFile, IsNamedByClassDeviceAndMonthAndRegisteredWhenNew) {
    const Notebook machine;
    const auto name = [](const char* letter, DbClass dbClass, std::int32_t trigger) {
        DataCollector collector(CollectionKind::Thermal);
        collector.dbName = letter;
        collector.dbClass = dbClass;
        collector.triggerType = trigger;
        setDbPath(collector);
        return collector.dbName;
    };
    const std::string uuid = "_00112233445566778899aabbccddeeff_";
    SetClock(2026, 11, 12);
    const std::string november = "O" + uuid + "202611_V1-0.db";
    EXPECT_EQ(name("O", DbClass::periodic, 9), november);
    EXPECT_EQ(Value(L"ODb_Filename"), std::wstring(november.begin(), november.end()) + L";1;2026-11-12");
    name("E", DbClass::event, 22);
    EXPECT_TRUE(Value(L"EDb_Filename").ends_with(L"_202611_V1-0.db;2;2026-11-12")) << "E";
    name("W", DbClass::wmi_event, 23);
    EXPECT_TRUE(Value(L"WDb_Filename").ends_with(L"_202611_V1-0.db;3;2026-11-12")) << "W";

    initDB(november, buildCreateTable("T", kColumns, 4));
    SetValue(L"ODb_Filename", L"");
    EXPECT_EQ(name("O", DbClass::periodic, 9), november);
    EXPECT_EQ(Value(L"ODb_Filename"), L"") << "the file is there already";
    SetClock(2026, 12, 1, 0, 0, 0);
    EXPECT_EQ(name("O", DbClass::periodic, 25), "O" + uuid + "202612_V1-0.db");
    EXPECT_TRUE(Value(L"ODb_Filename").ends_with(L"_202612_V1-0.db;1;2026-12-01")) << "a new month";
    EXPECT_EQ(machine.data_files(), Names{november});
}

}  // namespace
}  // namespace zorvalis
