// The whole road with the built programs: the executable, over TLS, to the built server and back.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/notebook.h"
#include "support/reference_server.h"
#include "support/traced.h"
#include "upload/http_client.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const std::string kStored = std::string(kProductFolder) + "setting.json";

class Road : public testing::Test {
protected:
    Road() {
        RemoveValue(L"BGSERVER_URL");
        // Nothing but the download, until the server says more.
        machine.setting(R"({"version": "2.0.6.0", "downloadSetting": "d1", "totalCollectTime": "600"})");
        fs::create_directories(server.folder() + "settings/2.0.6.0");
        write_text(server.folder() + "settings/2.0.6.0/default.json",
                   R"({"downloadSetting": "d1", "intervalTimer": "1", "totalCollectTime": "600", "thermal": "m5",
                       "upload": "d1"})");
    }

    // One pass, in which these timers are due.
    void Run(const std::vector<std::wstring>& due) const {
        for (const std::wstring& timer : due) {
            RemoveValue(timer);
        }
        EXPECT_EQ(std::system(("\"" + service + "\" -j0").c_str()), 0);
    }

    // What the server took under the name.
    std::string Received(const std::string& file) const { return read_text(server.folder() + "data/files/" + file); }

    Notebook machine;
    const std::string service = machine.install_service();
    ReferenceServer server{machine};
};

TEST_F(Road, BringsSettingsDownAndFilesUpOnceTheServerIsTrusted) {
    const std::string before = read_text(kStored), file = FileOf("O");
    Run({});
    EXPECT_EQ(read_text(kStored), before);
    EXPECT_EQ(server.count(), 0);
    server.trust();
    Run({L"getSettingFile"});
    EXPECT_EQ(ParseJson(read_text(kStored))["thermal"], "m5");
    EXPECT_EQ(machine.stored(), "O Thermal 1") << "the settings rule at once";
    SetValue(L"ODb_Filename", WidenBytes(file + ";1;2000-01-01"));
    Run({L"upload"});
    EXPECT_EQ(server.count("query"), 1);
    EXPECT_FALSE(Received(file).empty());
    EXPECT_TRUE(Received(file) == read_text(kDataFolder + file));
    EXPECT_EQ(machine.query("BGFS.db", "SELECT FILE_STATUS, FILE_SERVER_RESPONSE FROM FILESTATUS"),
              (std::vector<Lines>{{"1", "BG_UPLOAD_STATUS_SUCCESS"}}));
}

#ifndef _WIN32  // where ./dev starts one server, with a good certificate

std::string Query() {
    return HttpSSLPost(getBGServerURL(), "/api/FS/query", R"({"clientversion":"2.0.6.0","modelname":"x"})", 1,
                       kConnectTimeout, kTransferTimeout, kTransferTimeout);
}

// Asks the server as a download does; the result and the lines that name a step.
Lines Ask() {
    std::string result;
    Lines lines = Traced([&] { result = Query(); });
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("[HttpSSLPost]["); });
    lines.insert(lines.begin(), result);
    return lines;
}

const Lines kRefused = {"error", "[HttpSSLPost][WinHttpSendRequest] Error has occurred: 12175",
                        "[HttpSSLPost][WinHttpReceiveResponse] Error has occurred: 12019"};

TEST_F(Road, RefusesACertificateThatIsOutOfDateForAnotherHostOrNoLongerTrusted) {
    server.trust();
    // Requests of several threads leave TLS sessions behind, which none of those below may resume.
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread([&] { answered += (Query() != kTransportError) + (Query() != kTransportError); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, 8);
    const std::string authority = server.folder() + "ca.pem", trusted = read_text(authority);
    EXPECT_EQ(std::system((server.tool + " --make-ca " + server.folder() + "other").c_str()), 0);
    write_text(authority, read_text(server.folder() + "other/ca.pem"));
    EXPECT_EQ(Ask(), kRefused);
    write_text(authority, std::string(9999, '\n') + trusted);
    EXPECT_EQ(Ask().at(1), "[HttpSSLPost][ResponseCode] Error: 200");
    SetValue(L"BGSERVER_URL", L"other.example");
    EXPECT_EQ(Ask(), kRefused);
    RemoveValue(L"BGSERVER_URL");
    EXPECT_EQ(std::system((server.tool + " --make-ca " + server.folder() + " --expired").c_str()), 0);
    EXPECT_EQ(server.end(), 0);
    server.begin("expired");
    EXPECT_EQ(Ask(), kRefused);
    EXPECT_EQ(server.end(), 0);
    EXPECT_EQ(server.count(), 9) << "of all that, the server heard the good requests";
    server.begin();
}

#endif

}  // namespace
}  // namespace zorvalis
