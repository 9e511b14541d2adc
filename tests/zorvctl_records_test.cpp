// zorvctl on the records of many files: found, merged, asked, judged, explained. Files come from strangers.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "base/json.h"
#include "common/deployment.h"
#include "support/machine.h"

namespace zorvalis {
namespace {

// The bytes of a plain database.
std::string Plain(const std::string& sql) {
    sqlite3* opened = nullptr;
    sqlite3_open(":memory:", &opened);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(opened, sqlite3_close);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(opened, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, void (*)(void*)> bytes(sqlite3_serialize(opened, "main", &size, 0),
                                                                sqlite3_free);
    return {reinterpret_cast<const char*>(bytes.get()), static_cast<std::size_t>(size)};
}

std::string Resting(const std::string& sql) {
    std::string bytes = Plain(sql);
    std::transform(bytes.begin(), bytes.end(), bytes.begin(),
                   [](char byte) { return static_cast<char>(byte ^ deployment::DbKey); });
    return bytes;
}

constexpr char kDevice[] = "01234567-89ab-cdef-0123-456789abcdef";

// A folder of files, some of them in folders below; the tool works in it.
class Records {
public:
    explicit Records(const std::vector<std::pair<std::string, std::string>>& files) {
        for (const auto& [name, bytes] : files) {
            std::filesystem::create_directories(
                std::filesystem::path(machine_.bin_folder() + "in/" + name).parent_path());
            write_text(machine_.bin_folder() + "in/" + name, bytes);
        }
        std::filesystem::current_path(machine_.bin_folder());
    }
    ~Records() { std::filesystem::current_path(before_); }

private:
    const TestMachine machine_;
    const std::filesystem::path before_ = std::filesystem::current_path();
};

struct Case {
    const char* arguments;
    int code;
    const char *output, *errors = "";  // pieces of them
    bool whole = false;                // `output` is all of it
};

void Expect(const Case& one) {
    const ToolResult result = run_zorvctl(one.arguments);
    EXPECT_EQ(result.code, one.code) << one.arguments << "\n" << result.errors;
    EXPECT_NE(result.output.find(one.output), std::string::npos) << one.arguments << "\n"
                                                                 << result.output.substr(0, 999);
    EXPECT_TRUE(!one.whole || result.output == one.output) << one.arguments << "\n" << result.output.substr(0, 999);
    EXPECT_NE(result.errors.find(one.errors), std::string::npos) << one.arguments << "\n" << result.errors;
    EXPECT_EQ(result.errors.empty(), one.code == 0) << one.arguments << "\n" << result.errors;
    if (std::string(one.arguments).find("--json") != std::string::npos) {
        EXPECT_NO_THROW(ParseJson(result.output)) << one.arguments << "\n" << result.output;
    }
    EXPECT_EQ(result.output.find('\x1b'), std::string::npos) << one.arguments;
}

TEST(ZorvctlRecords, AreOneDatabaseInWhichEachRowKnowsFileAndDevice) {
    const std::string row = "INSERT INTO Thermal VALUES ('2026-11-0",
                      thermal = "CREATE TABLE Thermal (local_time DATE, ";
    const Records records({
        {"O_0123456789ABCDEF0123456789abcdef_202611_V1-0.db",
         Resting(thermal + "freq INTEGER, guid STRING, cpu_temp INTEGER);" + row + "1 10:00:00', 17, '" + kDevice +
                 "', 50);" + row + "2 10:00:00', 99, NULL, 60)")},
        {"a/E_0123456789abcdef0123456789abcdef_202611_V1-0.db", Resting(thermal + "guid STRING)")},
        {"a/older.DB", Plain(thermal + "CPU_TEMP INTEGER, extra);" + row + "3 10:00:00', 70, 'x')")},
        {"a/named.txt", Plain("CREATE TABLE Other (b)")},
    });
    constexpr char kNewest[] = "cpu_temp,device\n60,01234567-89ab-cdef-0123-456789abcdef\n70,in/a/older.DB\n";
    for (const Case& one : std::initializer_list<Case>{
             {"query \"SELECT count(*) n, count(DISTINCT device) d, sum(cpu_temp) s, count(extra) e, count(guid) g "
              "FROM thermal\" in in/a/older.DB --csv",
              0, "n,d,s,e,g\n3,2,180,1,1\n", "", true},
             {"query \"SELECT device, 'a' || char(34) q, char(13) r, 'b ' s FROM Thermal WHERE extra = 'x'\" in --csv",
              0, "device,q,r,s\nin/a/older.DB,\"a\"\"\",\"\r\",\"b \"\n", "", true},
             {"query \"SELECT freq FROM Thermal WHERE freq > 9\" in", 0, "17 lid closed\n99\n"},
             {"query \"SELECT * FROM Thermal WHERE local_time GLOB '*-03 *'\" in --json", 0, "\"cpu_temp\": 70"},
             {"query \"SELECT b FROM Other\" in in/a/named.txt --json", 0, "[]\n", "", true},
             {"query \"SELECT b FROM Other\" in", 2, "", "no such table: Other; there are: Thermal"},
             {"query \"SELECT bb FROM Thermal\" in --json", 2, "{\"error\": \"the statement", "no such column: bb"},
             {"query \"SELECT 1; SELECT 2\" in", 2, "", "only one statement"},
             {"query \"DELETE FROM Thermal\" in", 2, "", "records are only read"},
             {"query \"ATTACH 'made' AS a\" in", 2, "", "records are only read"},
             {"query \"VACUUM INTO 'made'\" in", 2, "", "records are only read"},
             {"query --json", 2, "{\"error\": ", "SQL is required"},
             {"query \"SELECT 1 a, 2 a, 9e999 b, CAST(x'ff' AS TEXT) c\" in --json", 0,
              "{\"a\": 1, \"a:1\": 2, \"b\": null, \"c\": \"\\\\xFF\"}"},
             {"query --csv \"SELECT count(*) FROM Thermal\" in absent", 1, "\n3\n", "absent does not exist"},
             {"show --table THERMAL --columns Freq in", 0, "\nfreq\n-------------\n17 lid closed\n99\n"},
             {"show --csv --columns cpu_temp,DEVICE --last 2 in", 0, kNewest, "", true},
             {"show --csv --columns cpu_temp,DEVICE --since 2026-11-02T10:00 in", 0, kNewest, "", true},
             {"show --csv --since 2026-11-02 --columns cpu_temp in/a/older.DB", 0, "CPU_TEMP\n70\n", "", true},
             {"show --csv in in/a/named.txt", 2, "",
              "--csv prints one table: choose it with --table NAME. There are: Thermal, Other"},
             {"show --json --since 2027-01-01 in/a/older.DB", 0, "\"Thermal\": []"},
             {"show --json absent", 1, "[\n]\n", "absent does not exist", true},
             {"show --json in/absent/", 1, "[\n]\n", "", true},
             {"show --since soon in", 2, "", "soon is no time"},
             {"show --last -1 in", 2, "", "from 1 to 999999999"},
             {"show --last 18446744073709551617 in", 2, "", "from 1 to 999999999"},
             {"show --sqlite merged in", 0, ""},
             {"query \"SELECT count(DISTINCT file) f, count(DISTINCT device) d FROM Thermal\" merged --csv", 0,
              "f,d\n2,2\n", "", true},
             {"show --sqlite merged in", 2, "", "not overwritten"},
             {"show --sqlite none absent in/absent", 1, "", "none of the files"},
         }) {
        Expect(one);
    }
    EXPECT_FALSE(std::filesystem::exists("made") || std::filesystem::exists("none"));
}

TEST(ZorvctlRecords, FromStrangersAttackNothingAndBadFilesAreNamed) {
    std::string wide = "CREATE TABLE Wide (c0",
                torn = Plain("CREATE TABLE T (a); INSERT INTO T VALUES (zeroblob(99999))");
    for (int i = 1; i < 2000; ++i) {
        wide += ", c" + std::to_string(i);
    }
    torn.replace(4096, 4096, 4096, '\x5C');
    const Records records({
        {"attack.db",
         // An endless view in the place of what the tool asks, a trigger, a column that would be a gigabyte, a type
         // that hides a constraint, and a virtual table.
         Plain("CREATE TABLE T (a \"INT UNIQUE\", g AS (a + 1)); INSERT INTO T VALUES (1), (2);"
               "CREATE VIEW pragma_table_info AS WITH RECURSIVE n(name) AS (SELECT 1 UNION ALL SELECT name FROM n) "
               "SELECT name FROM n; CREATE TRIGGER t BEFORE INSERT ON T BEGIN DELETE FROM T; END;"
               "CREATE TABLE V (x); PRAGMA writable_schema = 1; UPDATE sqlite_schema SET rootpage = 0, "
               "sql = 'CREATE VIRTUAL TABLE V USING absent(x)' WHERE name = 'V'")},
        {"empty.db", ""},
        {"names.db",
         Plain("CREATE TABLE \"a\"\"b'; DROP\x1b[2J\" (\"<b>\x1b\n\" STRING, \"a,\"\"b\");"
               "INSERT INTO \"a\"\"b'; DROP\x1b[2J\" VALUES (CAST(x'1b5b324aff3c2f7363726970743e' AS TEXT), 1)")},
        {"torn.db", torn},
        {"utf16.db",
         Plain("PRAGMA encoding = 'UTF-16'; CREATE TABLE T (a, guid); INSERT INTO T VALUES ('\xC3\xA4', '../../etc')")},
        {"long.db",
         Plain("CREATE TABLE T (a); INSERT INTO T VALUES (CAST(zeroblob(9999) AS TEXT)), (hex(zeroblob(524288)))")},
        {"wide.db", Plain(wide + "); INSERT INTO Wide (c1999) VALUES (7)")},
    });
    for (const Case& one : std::initializer_list<Case>{
             {"query \"SELECT count(*) n, sum(a) s, max(length(a)) l FROM T\" in --csv", 1, "n,s,l\n5,3.0,1048576\n",
              "torn.db is damaged", true},
             {"query \"SELECT 1\" in", 1, "", "empty.db is empty"},
             {"query \"SELECT 1\" in", 1, "", "wide.db cannot be merged: too many columns"},
             {"query \"SELECT a, device FROM T NATURAL JOIN T b WHERE file LIKE '%f16%'\" in --csv", 1,
              "\n\xC3\xA4,in/utf16.db\n"},
             {"query \"SELECT a FROM T WHERE (file, device, a, '../../etc') IN T\" in/utf16.db --csv", 0,
              "\n\xC3\xA4\n"},
             {"query \"SELECT * FROM V\" in", 2, "", "no such table: V"},
             {"show in/attack.db", 0, "T: 2 rows"},
             {"show in/names.db", 0, "\\x1B[2J\\xFF</script>"},
             {"show --json in/names.db", 0, "\"<b>"},
             {"show --json in/long.db", 0, "000000"},
             {"show in/long.db", 0, "T: 2 rows"},
             {"show --csv --columns C1999 in/wide.db", 0, "c1999\n7\n", "", true},
             {"show in/wide.db", 0, "c1999  7\n"},
             {"show --sqlite merged in", 1, "", "torn.db is damaged"},
             {"query \"SELECT count(*) FROM T\" merged --csv", 0, "\n5\n"},
             {"health in", 1, "Devices: no rows\n", "torn.db is damaged"},
         }) {
        Expect(one);
    }
}

TEST(ZorvctlHealth, PutsTheWorstFirstAndSaysWhy) {
    const auto device = [](const char* name, const std::string& battery, const std::string& thermal) {
        return std::pair(
            std::string("O_") + name + "_202611_V1-0.db",
            Resting("CREATE TABLE SysInfo (local_time, model_name, battery_design_capacity INTEGER);"
                    "INSERT INTO SysInfo VALUES ('1', 'Lumen', 50000);"
                    "CREATE TABLE Battery_Power (local_time, full_capacity, cyclecount, cellvoltages, temperature);"
                    "CREATE TABLE Thermal (local_time, cpu_temp, disk_temp, rpm_fans);" +
                    (battery.empty() ? "" : "INSERT INTO Battery_Power VALUES " + battery + ";") +
                    (thermal.empty() ? "" : "INSERT INTO Thermal VALUES " + thermal)));
    };
    std::string many;  // samples: in the newer twenty the cells are even
    for (int i = 0; i < 40; ++i) {
        many += std::string(i == 0 ? "" : ", ") + "('" + std::to_string(i % 2 == 0 ? 200 + i : 100 + i) +
                (i % 2 == 0 ? "', 50000, 1, '4001,4002', 1)" : "', 50000, 1, '4000,4200', 1)");
    }
    const Records records({
        device("many", many, ""),
        device("fine", "('2', 49999, 10, '4000, 0, 4049', 30), ('1', 1, 9999, '', 0)", "('1', 60, '40', '0, 0')"),
        // What a failing library leaves, and texts that are no numbers.
        device("unread", "('1', 4294967295, 4294967295, '4294967295, x', 4294967295)",
               "('1', 4294967295, '-', 'fast'), ('2', 0, '', NULL)"),
        device("edge", "('1', 40499, 499, '4000,4049', 49)", "('1', 94, '59, 20', '0, 900')"),
        device("watch", "('1', 40000, 500, '4000,4050', 50)", "('1', 95, '20, 60', '900, 0'), ('1', 20, '', '0, 9')"),
        device("hot", "('1', 50000, 1, '4000,4000', 61)", ""),
        device("stuck", "", "('1', 80, '', '0'), ('2', 80, '', '0'), ('3', 80, '', '0')"),
        device("old", "('1', 20000, 1200, '4000,4200', 30)", ""),
        device("older", "('1', 0, 1200, '4000,4200', 30)", ""),
        // One wild sample among others is not the cells' state.
        device("jump",
               "('1', 50000, 1, '3000,4200', 1), ('2', 50000, 1, '4001,4002', 1), ('3', 50000, 1, '4001,4002', 1)", ""),
    });
    Expect(
        {"health in --csv", 0,
         "state,device,model,last_seen,battery,cycles,cells,battery_temperature,cpu_temperature,disk_temperature,"
         "still_fans,why\n"
         "sick,older,Lumen,1,0,1200,200,30,,,,battery 0 %; cycles 1200; cells 200 mV\n"
         "sick,old,Lumen,1,40,1200,200,30,,,,battery 40 %; cycles 1200; cells 200 mV\n"
         "sick,hot,Lumen,1,100,1,0,61,,,,battery temperature 61 °C\n"
         "sick,stuck,Lumen,3,,,,,80,,3,still fans 3\n"
         "watch,watch,Lumen,1,80,500,50,50,95,60,1,battery 80 %; cycles 500; cells 50 mV; battery temperature 50 °C; "
         "cpu temperature 95 °C; disk temperature 60 °C; still fans 1\n"
         "watch,edge,Lumen,1,80,499,49,49,94,59,0,battery 80 %\n"
         "fine,fine,Lumen,2,99,10,49,30,60,40,0,\n"
         "fine,jump,Lumen,3,100,1,1,1,,,,\n"
         "fine,many,Lumen,238,100,1,1,1,,,,\n"
         "no data,unread,Lumen,2,,,,,,,,\n",
         "", true});
    Expect({"health in --json", 0, "{\"state\": \"sick\", \"device\": \"older\""});
    Expect({"health in", 0, "\n\nsick  older  Lumen\n    battery 0 %; cycles 1200; cells 200 mV\nsick  old  "});
    Expect({"health absent --json", 1, "[]\n", "absent does not exist", true});
}

TEST(ZorvctlColumns, ArePagesInTheDocumentsWithWordsForEachColumn) {
    const TestMachine machine;  // the outputs lie in its folder
    const std::string docs = std::string(ZORV_DOCS) + "/";
    EXPECT_EQ(run_zorvctl("columns").output, read_text(docs + "columns.md")) << "zorvctl columns > docs/columns.md";
    EXPECT_NE(read_text(docs + "records.md").find(run_zorvctl("health --limits").output), std::string::npos);
    const Json told = ParseJson(run_zorvctl("columns --json").output);
    EXPECT_FALSE(told["columns"].empty());
    for (const Json& column : told["columns"]) {
        EXPECT_NE(column["meaning"], "") << column.dump() << " has no words in tools/zorvctl/columns.cpp";
    }
    EXPECT_EQ(told["columns"][0].size(), 10U);
    EXPECT_EQ(told["triggers"]["17"], "17 lid closed");
}

}  // namespace
}  // namespace zorvalis
