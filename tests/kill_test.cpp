// The built executable, killed at any moment of an upload or of the settings' download, or without room on the disk:
// what the next pass makes of it.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "collection/collectors.h"
#include "store/telemetry_db.h"
#include "support/file_server.h"
#include "support/notebook.h"
#include "upload/file_status.h"

namespace zorvalis {
namespace {

constexpr char kFile[] = "x.db";
const std::string kPath = std::string(kDataFolder) + kFile;
const std::string kStatusPath = std::string(kDataFolder) + kStatusDb;
using Rows = std::vector<std::vector<std::string>>;

// One database of some chunks is due, and nothing else.
class Kill : public testing::Test {
protected:
    Kill() {
        write_text(platform::machine_folder() + "/clock.json", R"({"wait": 0})");
        machine.change_setting(R"({"downloadSetting": null, "thermal": null, "battery_power": null,
                                   "systeminfo": null})");
        initDB(kFile, "CREATE TABLE Padding AS SELECT randomblob(20000) AS bytes;");
        createAllTables(kFile, DbClass::periodic);
        bytes = read_text(kPath);
        server.on_fault = [this] {
            process.wait(0);
            ::kill(process, SIGKILL);
        };
    }

    // The data folder holds the file, which was never tried, and no trace of an earlier pass.
    void StartAnew() {
        for (const std::string& name : machine.data_files()) {
            platform::remove_file(kDataFolder + name);
        }
        write_text(kPath, bytes);
        Register(kFile);
        RemoveValue(L"upload");
        server.reset();
    }

    // A pass; true when it was killed, by the server or after its nth step with a file. No file grows beyond `room`.
    bool IsKilled(int step = 0, rlim_t room = RLIM_INFINITY) {
        process = 0;
        LoopbackServer::settle();
        const pid_t child = ::fork();
        if (child == 0) {
            ::setenv("ASAN_OPTIONS", asan_options.c_str(), 1);
            ::setenv("ZORV_KILL_AT", std::to_string(step).c_str(), 1);
            ::setenv("LD_PRELOAD", kill_point.c_str(), 1);
            const rlimit limit = {room, RLIM_INFINITY};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            ::signal(SIGXFSZ, SIG_IGN);
            ::execl(service.c_str(), service.c_str(), "-j0", nullptr);
            ::_exit(127);
        }
        process = child;
        process.notify_all();
        int status = 0;
        ::waitpid(child, &status, 0);
        LoopbackServer::settle();
        EXPECT_TRUE(status == 0 || status == SIGKILL) << status;
        return status == SIGKILL;
    }

    Rows Row() const {
        return machine.query(kStatusDb, "SELECT FILE_STATUS, FILE_UPLOAD_STATUS, FILE_TRY_COUNT FROM FILESTATUS");
    }
    void ExpectSent(const std::string& when) {
        EXPECT_EQ(machine.data_files().size(), 2U) << when;
        EXPECT_TRUE(server.files[kFile].finished) << when;
        EXPECT_TRUE(server.files[kFile].bytes == bytes) << when << ": a chunk went twice, or never";
        EXPECT_TRUE(read_text(kPath) == bytes) << when;
        EXPECT_EQ(Row(), (Rows{{"1", "2", "1"}})) << when;
    }

    Notebook machine;
    FileServer server;
    std::string bytes;
    const std::string service = machine.install_service(), kill_point = built("../tests/kill_point.so");
    const char* const given = std::getenv("ASAN_OPTIONS");
    const std::string asan_options = std::string(given != nullptr ? given : "") + ":verify_asan_link_order=0";
    std::atomic<pid_t> process = 0;
};

TEST_F(Kill, AtAnyCallLeavesTheRowAtRestAndTheNextPassGoesOn) {
    const std::size_t chunks = (bytes.size() + 16383) / 16384;
    for (std::size_t call = 0; call < chunks + 2; ++call) {
        for (const bool late : {false, true}) {
            const std::string when = "call " + std::to_string(call) + (late ? ", done" : "");
            StartAnew();
            server.faults[call] = {200, "", true, late};
            EXPECT_TRUE(IsKilled()) << when;
            EXPECT_EQ(Row(), (Rows{{"0", "0", "0"}})) << when;
            EXPECT_FALSE(IsKilled()) << when;
            ExpectSent(when);
        }
    }
}

TEST_F(Kill, NothingIsLostWhereAPassMeetsRecordedEvents) {
    for (int meeting = 0; meeting < 2; ++meeting) {
        StartAnew();
        std::atomic<bool> ended = false;
        std::thread pass([&] {
            EXPECT_FALSE(IsKilled());
            ended = true;
        });
        int rows = 0;
        while (!ended) {
            insert(kFile, "INSERT INTO Thermal (freq) VALUES (" + std::to_string(++rows) + ")");
        }
        pass.join();
        EXPECT_EQ(machine.query(kFile, "SELECT COUNT(*) FROM Thermal"), (Rows{{std::to_string(rows)}}));
        EXPECT_EQ(machine.query(kStatusDb, "SELECT COUNT(*) FROM FILESTATUS WHERE FILE_STATUS != 2"), (Rows{{"1"}}));
        EXPECT_EQ(machine.data_files(), (std::vector<std::string>{kStatusDb, kFile}))
            << "a lock is no file of the folder";
    }
}

TEST_F(Kill, AtAnyFileLosesWhatLiesBetweenItsDeleteAndItsRenameAndNothingElse) {
    int lost = 0;
    for (int step = 1;; ++step) {
        const std::string when = "step " + std::to_string(step);
        StartAnew();
        if (!IsKilled(step)) {
            ExpectSent("not killed");
            break;
        }
        const bool rowLost = !platform::file_exists(kStatusPath), fileLost = !platform::file_exists(kPath);
        const std::size_t calls = server.calls.size();
        if (!rowLost && !fileLost) {
            EXPECT_FALSE(IsKilled()) << when;
            ExpectSent(when);
            continue;
        }
        ++lost;
        const std::string successor = read_text((rowLost ? kStatusPath : kPath) + ".cached.temp");
        EXPECT_TRUE(fileLost ? successor == bytes : !successor.empty()) << when;
        EXPECT_FALSE(IsKilled()) << when;
        EXPECT_EQ(server.calls.size(), calls) << when;
        EXPECT_EQ(Row(), Rows()) << when << ": a file without its row, or a row without its file";
        EXPECT_TRUE(fileLost ? !platform::file_exists(kPath) : read_text(kPath) == bytes) << when;
        EXPECT_EQ(machine.data_files().size(), 2U - fileLost) << when << ": what the killed pass left is gone";
    }
    EXPECT_GT(lost, 0);
}

TEST_F(Kill, OrAFullDiskLeavesWholeSettingsOrNone) {
    const std::string path = std::string(kProductFolder) + "setting.json";
    const auto document = [](const char* thermal, std::size_t padding) {
        const std::string other(padding, '.');
        return DumpJson(
            Json{{"downloadSetting", "d1"}, {"other", other}, {"thermal", thermal}, {"version", "2.0.6.0"}});
    };
    machine.default_setting(document("default", 0));
    const struct {
        std::string old, fresh;
        int writes;
    } cases[] = {{"", document("new", 3000), 2},
                 {document("old", 0), document("new", 3000), 3},
                 {document("old", 3000), document("new", 0), 2}};
    for (const auto& [old, fresh, writes] : cases) {
        // What a pass that was killed or had no room leaves, without closing blanks; the next one goes on.
        const auto left = [&](int step, rlim_t room) {
            server.reset();
            platform::remove_file(path);
            if (!old.empty()) {
                write_text(path, old);
            }
            server.setting = DumpJson(Json{{"json_string", fresh}, {"service_version", "2.0.6.0"}, {"status", "OK"}});
            RemoveValue(L"getSettingFile");
            EXPECT_EQ(IsKilled(step, room), step > 0 && step <= writes) << step;
            std::string text = read_text(path);
            EXPECT_EQ(text.empty(), !platform::file_exists(path)) << step << ": an empty file ends every pass";
            server.setting = "error";
            RemoveValue(L"getSettingFile");
            EXPECT_FALSE(IsKilled());
            EXPECT_EQ(server.calls.size(), 2U) << text;
            return text.erase(text.find_last_not_of(' ') + 1);
        };
        for (int step = 1; step <= writes; ++step) {
            const std::string text = left(step, RLIM_INFINITY);
            EXPECT_TRUE(text == old || text == fresh) << step << ": " << text;
        }
        EXPECT_EQ(left(writes + 1, RLIM_INFINITY), fresh);
        for (const rlim_t room : {200U, 1000U}) {
            EXPECT_EQ(left(0, room), "") << room;
        }
    }
}

}  // namespace
}  // namespace zorvalis
