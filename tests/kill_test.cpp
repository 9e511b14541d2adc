// The built executable beside another user of its files, killed, or without room on the disk: what the next pass makes
// of it. `./dev faults` tries far more, through the same zorvfault.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "collection/collectors.h"
#include "store/telemetry_db.h"
#include "support/file_server.h"
#include "support/notebook.h"
#include "upload/file_status.h"

namespace zorvalis {
namespace {

constexpr char kFile[] = "x.db";
constexpr int kKilled = 137;
using Rows = std::vector<std::vector<std::string>>;

// Nothing is due but uploads.
class Kill : public testing::Test {
protected:
    Kill() {
        write_text(machineFolder + "/clock.json", R"({"wait": 0})");
        machine.change_setting(R"({"downloadSetting": null, "thermal": null, "battery_power": null,
                                   "systeminfo": null})");
    }

    // A pass whose Nth operation on the product's files fails in that way; 0 for none. Its exit code.
    int Pass(const std::string& kind = "kill", int number = 0) {
        LoopbackServer::settle();
        const int status = std::system((built("zorvfault") + " " + machineFolder + "/ProgramData " + log + " " + kind +
                                        " " + std::to_string(number) + " " + service + " -j0 >/dev/null")
                                           .c_str());
        LoopbackServer::settle();
        return WEXITSTATUS(status);
    }

    // The numbers of the last pass' operations on a file.
    std::vector<int> Operations(const std::string& path) {
        std::vector<int> numbers;
        std::istringstream lines(read_text(log));
        int number = 0;
        for (std::string line; std::getline(lines, line);) {
            ++number;
            if (line.ends_with(path)) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

    Notebook machine;
    FileServer server;
    const std::string machineFolder = platform::machine_folder(), log = machineFolder + "/operations.log";
    const std::string service = machine.install_service();
};

TEST_F(Kill, NothingIsLostWhereAPassMeetsRecordedEvents) {
    initDB(kFile, "CREATE TABLE Padding AS SELECT randomblob(20000) AS bytes;");
    createAllTables(kFile, DbClass::periodic);
    int rows = 0;
    for (int meeting = 0; meeting < 2; ++meeting) {
        Register(kFile);
        RemoveValue(L"upload");
        server.reset();
        std::atomic<bool> ended = false;
        std::thread pass([&] {
            EXPECT_EQ(Pass(), 0);
            ended = true;
        });
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
    } cases[] = {{"", document("new", 3000)},
                 {document("old", 0), document("new", 3000)},
                 {document("old", 3000), document("new", 0)}};
    for (const auto& [old, fresh] : cases) {
        const auto pass = [&, &old = old, &fresh = fresh](const std::string& kind, int number) {
            platform::remove_file(path);
            if (!old.empty()) {
                write_text(path, old);
            }
            server.setting = DumpJson(Json{{"json_string", fresh}, {"service_version", "2.0.6.0"}, {"status", "OK"}});
            RemoveValue(L"getSettingFile");
            return Pass(kind, number);
        };
        for (const std::string kind : {"kill", "full"}) {
            EXPECT_EQ(pass(kind, 0), 0);
            EXPECT_EQ(read_text(path), fresh);
            const std::vector<int> operations = Operations("/setting.json");
            EXPECT_FALSE(operations.empty());
            for (const int operation : operations) {
                const std::string when = kind + std::to_string(operation);
                EXPECT_EQ(pass(kind, operation), kind == "kill" ? kKilled : 0) << when;
                std::string text = read_text(path);
                EXPECT_EQ(text.empty(), !platform::file_exists(path)) << when << ": an empty file ends every pass";
                text.erase(text.find_last_not_of(' ') + 1);
                EXPECT_TRUE(kind == "kill" ? text == old || text == fresh : text.empty()) << when << ": " << text;
                server.reset();
                server.setting = "error";
                RemoveValue(L"getSettingFile");
                EXPECT_EQ(Pass(), 0);
                EXPECT_EQ(server.calls.size(), 1U) << when << ": the next pass goes on";
            }
        }
    }
}

}  // namespace
}  // namespace zorvalis
