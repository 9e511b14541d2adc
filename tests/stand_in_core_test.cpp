// What of the core only the stand-in machine shows: trace lines in their order, a job that blocks, a registry that
// cannot be written, two passes at once.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "base/number.h"
#include "collection/collectors.h"
#include "collection/zorv_win_io_dll.h"
#include "common/log.h"
#include "common/time.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"
#include "support/notebook.h"
#include "support/traced.h"
#include "upload/chunk_hash.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;

// Each session that takes nothing replaces the file of the one before, which the next one writes over.
TEST(Trace, FollowsASessionOfLevel4AndFlagBit0AndALogThatIsDeleted) {
    const TestMachine machine;
    const std::string session = platform::machine_folder() + "/trace.json", fresh = session + ".new";
    const auto is_taken = [] {
        const std::size_t before = TraceLines().size();
        LogMessageW(L"wide \u20AC");
        return TraceLines().size() > before;
    };
    StartTrace();
    for (const auto& [level, flags, taken] :
         {std::tuple{4, 1, true}, {3, 1, false}, {5, 3, true}, {4, -2, false}, {255, 1, true}}) {
        const std::string text = R"({"level": )" + std::to_string(level) + R"(, "flags": )" +
                                 std::to_string(static_cast<unsigned>(flags)) + "}";
        write_text(taken ? session : fresh, text);
        if (!taken) {
            fs::rename(fresh, session);
        }
        EXPECT_TRUE(Comes([&] { return is_taken() == taken; })) << text;
        fs::remove(platform::machine_folder() + "/trace.log");
        EXPECT_TRUE(!taken || Comes(is_taken)) << text;
    }
    EXPECT_TRUE(read_text(platform::machine_folder() + "/trace.log").ends_with("\twide \xE2\x82\xAC\n"));
    StopTrace();
    EXPECT_FALSE(is_taken());
}

TEST(MachineClock, ShowsEachChangeOfItsFileAtOnce) {
    const TestMachine machine;
    const std::string file = platform::machine_folder() + "/clock.json";
    const std::int64_t later = platform::now_seconds() + 1000000;
    for (const char* text : {R"({"offset": 1000000})", "{"}) {  // half of it while an editor writes
        write_text(file, text);
        EXPECT_GE(platform::now_seconds(), later) << text;
    }
    fs::remove(file);
    EXPECT_LT(platform::now_seconds(), later);
}

// D is the data folder, N the file's name, M its middle, T the time. The lines of a file's cycle are an upload's too,
// whose trace has them.
TEST(Trace, TellsOneEventInItsOrder) {
    const Notebook machine;
    const std::int64_t now = SetClock(2026, 11, 20, 12, 34, 56);
    const std::string name = FileOf("E");
    const std::pair<std::string, const char*> shortened[] = {
        {kDataFolder, "D"}, {name, "N"}, {name.substr(2, name.size() - 5), "M"}, {"2026-11-20 12:34:56", "T"}};
    std::string text;
    for (std::string line : Traced([&] { Jobs().DoCollectJob(L"quiet_fan", 18, false, now); })) {
        for (const auto& [from, to] : shortened) {
            for (std::size_t at; (at = line.find(from)) != line.npos;) {
                line.replace(at, from.size(), to);
            }
        }
        if (line.find("diff") == line.npos && line.find("cryptDBFast") == line.npos &&
            line.find("[validateDB]") == line.npos && line.find("[integritycheck") == line.npos) {
            text += line + " | ";
        }
    }
    EXPECT_EQ(text,
              "DoCollectJob - action : quiet_fan, parameter : 18 | Enclosure Type = Notebook | [Utility] "
              "isMainSwitchEnable : ERROR_READREG | [isImageStateComplete] start | [isImageStateComplete] "
              "REG_IMAGE_STATE == IMAGE_STATE_COMPLETE | [Utility]  totalCollectTime from setting file : "
              "600months.\\n | [Utility]  Get activation time from GPNV fail.\\n | [Utility]  manufacturingDateString "
              ": 2020/01/15 | [Utility]  isOverTotalCollectTimeStatus = false.\\n | [Utility] specificTime : 1 | "
              "[Utility] never set lastDojobTime | BigdataCheck - CJ_QUIETFAN | DoCollectJob - BigdataCheck funcMask "
              ": 256 | [in] getAutoDBFileName | [getDeviceUUID] uuid: 00112233-4455-6677-8899-aabbccddeeff | "
              "getAutoDBFileName::dbFileName: M | [out] getAutoDBFileName | dbName:    N | db file doesn't exist | "
              "CreateSqliteDBFolder: D | [initDB] Opened N.db | Created N.db Success!! | Close DB success!! | in "
              "canStoreData:============> | totalRecord Opened N.db | [totalRecordCallback] azColName COUNT(*) value "
              "0 | totalRecord 0 get from N.db Success!! | totalRecord Close N DB success!! | canStoreData dbname: N "
              "tablename: UserBehavior totalrecords: 0 limit: 108 | out canStoreData:============> | "
              "[collectUserBehaviorData] ub data retrieving | in RetrieveData===============> | ~~~>INDEX_WMI : "
              "GetRandomUUID | [getDeviceUUID] uuid: 00112233-4455-6677-8899-aabbccddeeff | ~~~>INDEX_WMI : "
              "WMIGetBatteryHealth | finish RetrieveData | out RetrieveData===============> | "
              "[collectUserBehaviorData] ub triggerType= 18 | [collectUserBehaviorData] columnnnnnn= T | in "
              "storeData===============> | insertBatDB Opened N.db | Inserting a value into N db ... | Inserting sql: "
              "INSERT INTO UserBehavior ( local_time, freq, guid, power_on, power_off, suspend, resume, "
              "battery_health_mode_change, battery_health_mode, quiet_fan_on, quiet_fan_off, ac_in, ac_out, lid_open, "
              "lid_close, wmi1, wmi2) VALUES( 'T', 18, '00112233-4455-6677-8899-aabbccddeeff', NULL, NULL, NULL, "
              "NULL, NULL, NULL, 'T', NULL, NULL, NULL, NULL, NULL, NULL, NULL); | Insert N.db Success!! | insert "
              "Close N DB success!! | out storeData===============> | ");
}

TEST(Trace, TellsThatAFullTableReadsNoHardware) {
    const Notebook machine;
    collectUserBehaviorData("1", 5, 16);
    const auto lines = Traced([] { collectUserBehaviorData("1", 5, 16); });
    ASSERT_GT(lines.size(), 3U);
    EXPECT_TRUE(lines[lines.size() - 2].ends_with("tablename: UserBehavior totalrecords: 1 limit: 0"));
    EXPECT_EQ(lines.back(), "out canStoreData:============>");
}

TEST(Trace, TellsAChangeOfSystemInformationByTheMissingLetter) {
    Notebook machine;
    const auto told = [](const std::string& words) {
        std::string before;
        for (const std::string& line : Traced([] { collectSystemInfoData("0", 8, 4); })) {
            if (line == words) {
                return before;
            }
            before = line;
        }
        return std::string("never");
    };
    const std::string local = "[collectSystemInfoData] sysinfo triggerType= " + EpochTextToTimeString("0");
    EXPECT_EQ(told("sUpdated: "), local);
    EXPECT_EQ(told("isUpdated: "), local);
}

TEST(EventLog, TellsOfALibraryThatCannotBeInitialised) {
    Notebook machine;
    machine.replace_library();
    ZorvWinIoDll();
    machine.remove_library();
    ZorvWinIoDll();
    ZorvWinIoDll(false);
    ExpectEventLog({" InitWinIo fail ", " ShutDown WinIop fail ", " InitWinIo fail ", " ShutDown WinIop fail "});
}

// A reading end that waits for its writer holds up the job that loads the settings.
TEST(JobLock, IsWaitedForAMinuteAndThenTheJobIsDropped) {
    const Notebook machine;
    platform::remove_file(std::string(kProductFolder) + "setting.json");
    const std::string pipe = machine.bin_folder() + "default.json";
    fs::remove(pipe);
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    Jobs().RequestMainSwitch(1);
    std::uint64_t changed = 0;
    std::thread slow([&] { changed = Jobs().DoJob(L"jobSetMainSwitch", 0, 0); });
    while (Value(L"MainSwitch") != L"1") {
        std::this_thread::yield();
    }
    Jobs().RequestMainSwitch(0);
    platform::set_clock({0, 0.0005});
    const std::int64_t before = platform::now_microseconds();
    EXPECT_EQ(Jobs().DoJob(L"jobSetMainSwitch", 0, 0), 0U);
    EXPECT_GE(platform::now_microseconds() - before, 30000) << "60 seconds by the switch";
    Jobs().DoCollectJob(L"ac_dc", JOB_TRIGGER_AC_IN, false, 0);
    EXPECT_GE(platform::now_microseconds() - before, 60000);
    EXPECT_EQ(Value(L"MainSwitch"), L"1");
    EXPECT_EQ(machine.stored(), "");
    ExpectEventLog({});
    write_text(pipe, "{}");
    slow.join();
    EXPECT_EQ(changed, 1U);
}

TEST(JobManager, DoesNotClaimWhatARegistryRefuses) {
    const Notebook machine;
    fs::remove_all(platform::machine_folder() + "/registry");
    write_text(platform::machine_folder() + "/registry", "");
    EXPECT_EQ(Jobs().DoJob(L"jobSetMainSwitch", 0, 0), 0U);
    EXPECT_FALSE(Jobs().checkRegTimer(L"GetThermal", 1, 1));
    EXPECT_TRUE(Jobs().checkRegTimer(L"upload", 1, 1));
}

// On Windows the connection that stays open keeps the working copy from being deleted for the rest of the process.
TEST(Store, StartsAgainFromTheRestingFileAfterASchemaThatFails) {
    const TestMachine machine;
    initDB("T.db", "CREATE TABLE T (a)");
    insert("T.db", "INSERT INTO T VALUES (1)");
    const auto lines = Traced([] { initDB("T.db", "DROP TABLE T; CREATE nothing"); });
    ASSERT_GT(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "[initDB] Error executing T.db.db statemant near \"nothing\": syntax error");
    EXPECT_EQ(lines.back(), "[initDB] Error executing T.db.db sql statemant DROP TABLE T; CREATE nothing");
    EXPECT_EQ(machine.data_files(), (std::vector<std::string>{"T.db", "T.db.cached"}));
    ExpectEventLog({" [SQ][init] Error executing "});
    EXPECT_EQ(totalRecord("T.db", "T"), 1);
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{"T.db"});
    EXPECT_EQ(OpenWorkingCopies().count("T.db.cached"), 1U) << "of the connection that stays open";
}

TEST(Passes, AtOnceLeaveASoundRegistryAndTheNextOneStores) {
    Notebook machine;
    const std::string service = machine.install_service();
    const std::string pass = service + " -j0";
    for (int turn = 0; turn < 5; ++turn) {
        ASSERT_EQ(std::system((pass + " & " + pass + " & " + pass + "; wait").c_str()), 0);
        for (const auto& entry : fs::recursive_directory_iterator(platform::machine_folder() + "/registry")) {
            const std::string text = entry.is_regular_file() ? read_text(entry.path()) : "REG_";
            EXPECT_TRUE(text.starts_with("REG_")) << entry.path();
            EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
        }
        for (const wchar_t* timer : {L"GetThermal", L"GetBatteryPower", L"GetSystemInfo"}) {
            EXPECT_GT(ParseInt64(Value(timer)), 0);
            RemoveValue(timer);
        }
    }
    ASSERT_EQ(std::system(pass.c_str()), 0);
    EXPECT_TRUE(machine.stored().starts_with("O Thermal ")) << machine.stored();
}

TEST(Chunk, IsNotLeftBehindByHalf) {
    const TestMachine machine;
    const std::string path = std::string(kProductFolder) + "x.db";
    CreateFolders({"C:\\ProgramData\\", "C:\\ProgramData\\Zorv\\", "C:\\ProgramData\\Zorv\\Zorvcore\\", kProductFolder},
                  nullptr);
    write_text(path, std::string(20000, 'x'));
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    std::optional<std::string> chunk;
    for (const rlim_t full : {9000, 16384}) {  // as on a disk that is full: soon, and for the last bytes
        const rlimit small = {full, before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        EXPECT_EQ(getMD5(path, 0, 16390, false, chunk), "") << full;
        EXPECT_FALSE(chunk || platform::file_exists(path + "_MD5_0_16390")) << full;
    }
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    const platform::File unreadable = platform::open_file(path, "wb"), copy = platform::open_file(path + "2", "wb");
    EXPECT_FALSE(platform::copy_bytes(unreadable.get(), copy.get(), 1, 0)) << "what cannot be read is no short file";
}

}  // namespace
}  // namespace zorvalis
