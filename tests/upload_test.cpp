#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "collection/collectors.h"
#include "common/deployment.h"
#include "store/telemetry_db.h"
#include "support/file_server.h"
#include "support/notebook.h"
#include "support/traced.h"
#include "upload/chunk_hash.h"
#include "upload/file_status.h"
#include "upload/status_cycle.h"
#include "upload/upload_status.h"

namespace zorvalis {
namespace {

using Names = std::vector<std::string>;

constexpr char kFile[] = "x.db";
constexpr std::size_t kChunk = 16384;
const std::string kPath = std::string(kDataFolder) + kFile;
const FileServer::Fault kCut = {200, "", true};
const Names kAtRest = {kStatusDb, kFile};

std::int32_t StartUpload() {
    return BG_FILESTATUS_CONTROLLER().startUpload(1, 1, 2, kStatusDb);
}

// Sends a file of any bytes, which need not be a database.
std::int32_t Send(FileRecord record, std::int32_t chunkIndex = 1) {
    BG_FILESTATUS_CONTROLLER controller;
    controller.fopenDB(kStatusDb);
    controller.fcloseDB();  // two cycles on one file would lose data
    const StatusCycle cycle(kStatusDb);
    record.fileName = kFile;
    return controller.uploading(cycle.Connection(), record, chunkIndex);
}

std::string Md5Of(const std::string& bytes) {
    const std::string path = std::string(kProductFolder) + "hashed";
    write_text(path, bytes);
    std::optional<std::string> md5;
    createMD5forFile(path, md5);
    return md5 ? *md5 : "";
}

// 2030-01-02 03:04:05, and no wait.
std::int64_t SetTime() {
    const std::int64_t time = SetClock(2030, 1, 2, 3, 4, 5);
    platform::set_clock({});
    platform::set_clock({time - platform::now_seconds(), 0.0});
    return time;
}

// One database of some chunks is due.
class Upload : public testing::Test {
protected:
    Upload() {
        platform::set_clock({0, 0.0});
        initDB(kFile, "CREATE TABLE Padding AS SELECT randomblob(40000) AS bytes;");
        createAllTables(kFile, DbClass::periodic);
        bytes = read_text(kPath);
        chunks = (bytes.size() + kChunk - 1) / kChunk;
        Register(kFile);
    }

    void StartAnew() {
        Register(kFile);
        server.reset();
    }

    std::string Columns(const std::string& columns, const std::string& name = kFile) const {
        std::string joined;
        const auto rows =
            machine.query(kStatusDb, "SELECT " + columns + " FROM FILESTATUS WHERE FILE_NAME = '" + name + "'");
        for (const std::string& field : rows.at(0)) {
            joined += field + "|";
        }
        return joined;
    }

    // How the latest attempt ended.
    std::string Outcome() const {
        return Columns(
            "FILE_UPLOAD_STATUS, FILE_STATUS, FILE_TRY_COUNT, FILE_UPLOAD_BYTES, "
            "FILE_SERVER_RESPONSE, FILE_UPLOAD_STAGE");
    }

    Notebook machine;
    FileServer server;
    std::string bytes;
    std::size_t chunks;
};

TEST_F(Upload, SendsTheRestingFileWithAllItsTables) {
    initDB("bare.db", "CREATE TABLE Other (a)");
    Register("bare.db", 3);
    EXPECT_EQ(BG_FILESTATUS_CONTROLLER().startUpload(3, 1, 2, kStatusDb), BG_UPLOAD_STATUS_SUCCESS);
    EXPECT_EQ(server.files["bare.db"].bytes, read_text(std::string(kDataFolder) + "bare.db"));
    EXPECT_EQ(machine.query("bare.db", "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'")[0][0], "5");
    EXPECT_EQ(server.body, "");
    EXPECT_EQ(server.calls.back(), "/api/FS/finishupload/id-bare.db");
}

// What an attempt for "two.db" logs and which updates it runs, put together from what each of its steps says.
struct Course {
    const std::string path = std::string(kDataFolder) + "two.db", status = std::string(kDataFolder) + kStatusDb,
                      host = deployment::TestServer;
    Names lines, updates;

    void Say(const Names& more, const std::string& start = "") {
        for (const std::string& line : more) {
            lines.push_back(start + line);
        }
    }
    void Check(const std::string& file) {
        Say({"[decryptDBFast] " + file + " exist", "[validateDB] start " + file, "[validateDB] fileExist",
             "[integritycheckCallback] azColName: integrity_check value ok"});
    }
    void Open() {
        Say({"[openDB] createDB path: BGFS.db", "[openDB] sqlite3_open_decrypt start "});
        Check(status);
        Say({"[openDB] createDB: Opened BGFS.db"});
    }
    void Close() { Say({"[encryptDBFast] " + status + " exist", "closeDB: closed " + status}); }
    void MakeTables() {
        for (int table = 0; table < 4; ++table) {
            Check(path);
            Say({"[initDB] Opened two.db.db", "[encryptDBFast] " + path + " exist", "Created two.db.db Success!!",
                 "Close DB success!!"});
        }
    }
    void Set(const std::string& column, const std::string& value) {
        updates.push_back("update FILESTATUS set " + column + " = " + value + " where FILE_NAME = 'two.db'");
        Say({"Start", "numbers: 1", "columns[i]: " + column + "  values[i]: " + value,
             "SQLite3 statemant: " + updates.back(), "Success!!"},
            "[BG_FILESTATUS_CONTROLLER][updateFileStatus] ");
    }
    void Stage(const std::string& stage) { Set("FILE_UPLOAD_STAGE", "'" + stage + "'"); }
    void Hash(const std::string& file, const std::string& md5) {
        Say({"createMD5 path: " + file, "mbsrtowcs_s: 0", "MD5 is: " + md5, "strcpy_s: 0",
             "createMD5forFile md5 is: " + md5});
    }
    // An empty answer is one with the status 500.
    void Call(const std::string& verb, const Names& start, const Names& steps, const std::string& answer) {
        const std::string secure = "[HttpSSL" + verb + "] ", plain = "[Http" + verb + "] ";
        Say({"getBGServerURL start", "getBGServerURL :" + host});
        Say(start, secure);
        Say({secure + "server == " + host, plain + "Start", plain + "Specify an HTTP server: " + host});
        Say(steps, plain);
        Say(answer.empty() ? Names{"ResponseCode: 500"} : Names{"ResponseCode: 200", "result_s: " + answer}, plain);
        Say({plain + "Return"});
    }
    void Post(const std::string& to, const std::string& body, const std::string& answer) {
        Call("Post", {"start", "server = " + host, "path = " + to, "postcontent = " + body},
             {"Create an HTTP request handle. path: " + to, "Send a request...", "End the request.",
              "Get the Response."},
             answer);
    }
    void Chunk(const std::string& start, const std::string& bytes, const std::string& size, const std::string& answer) {
        const std::string step = "[BG_FILESTATUS_CONTROLLER][uploading] Step3 ", length = std::to_string(bytes.size()),
                          chunk = path + "_MD5_" + start + "_" + length, md5 = Md5Of(bytes);
        Say({step + "uploadbytes: " + start + " <  filesize: " + size});
        Stage("getMD5");
        Say({"getMD5 totalsize: " + size + " start size: " + start, "getMD5 blocksize: " + length});
        Hash(chunk, md5);
        Say({"getMD5 chunkfilepath name: " + chunk, "MD5 final is " + md5,
             "BG_FILESTATUS_CONTROLLER: uploading : Step3 split the file and get md5:" + md5,
             step + "chunkfilepath != NULL", "[base64_FileEncode] Start filename: " + chunk,
             "[base64_FileEncode] File not null ", "[base64_FileEncode] End "});
        Stage("uploadfilechunk uploadbytes:" + start);
        Post("/api/FS/uploadfilechunk", R"({"checksum":")" + md5 + R"(","filechunk":"...","fileuuid":"id-two.db"})",
             answer);
    }
};

// Puts "..." in the place of what stands between a beginning and an end.
void Shorten(std::string& text, const std::string& beginning, char end) {
    for (std::size_t at = text.find(beginning); at != std::string::npos; at = text.find(beginning, at)) {
        at += beginning.size();
        text.replace(at, text.find(end, at) - at, "...");
    }
}

TEST_F(Upload, LogsAndStoresEachStepInItsOrder) {
    initDB("two.db", "CREATE TABLE Other (a)");
    createAllTables("two.db", DbClass::event);
    const std::string name = "two.db", content = read_text(kDataFolder + name), md5 = Md5Of(content),
                      size = std::to_string(content.size()), ok = Status("OK");
    ASSERT_TRUE(content.size() > kChunk && content.size() <= 2 * kChunk);
    for (const bool fails : {false, true}) {
        server.reset();
        if (fails) {
            server.faults[2] = {500};
        }
        Register(name, 2);
        const auto columns = machine.query(kStatusDb, "SELECT name FROM pragma_table_info('FILESTATUS')");
        const Names row = machine.query(kStatusDb, "SELECT * FROM FILESTATUS WHERE FILE_TYPE = 2")[0];
        SetTime();
        Names lines, statements;
        statements =
            Executed([&] { lines = Traced([&] { BG_FILESTATUS_CONTROLLER().startUpload(2, 1, 2, kStatusDb); }); });
        statements.erase(statements.begin(), statements.begin() + 2);  // for the table and for the list
        for (Names* const texts : {&lines, &statements}) {
            for (std::string& text : *texts) {
                Shorten(text, "\"filechunk\":\"", '"');
                Shorten(text, "'2030-01-02 03:04:", '\'');  // the second may be over
            }
        }

        Course course;
        const std::string run = "[BG_FILESTATUS_CONTROLLER][startUpload] ",
                          words = "[BG_FILESTATUS_CONTROLLER][uploading] ",
                          begun = R"({"filesize":0,"fileuuid":"id-two.db","status":"OK"})";
        course.Open();
        course.Say({run + "Start ...", "checkNewtWork"});
        course.Close();
        course.Open();
        for (std::size_t i = 0; i < columns.size(); ++i) {
            course.Say({"[BG_FILESTATUS_CONTROLLER][bgSelectUploadFileCallback] azColName " + columns[i][0] +
                        " value " + row[i]});
        }
        course.Say({"[BG_FILESTATUS_CONTROLLER][getUploadFileList] Select Success!!"});
        course.Close();
        course.Open();
        course.Set("FILE_UPLOAD_START_TIME", "'2030-01-02 03:04:...'");
        course.Set("FILE_UPLOAD_STATUS", "1");
        course.Stage("initUploadFile start");
        course.MakeTables();
        course.Say({words + "Start"});
        course.Stage("uploading start");
        course.Say({words + "Step1 get file total size and file checksum"});
        course.Set("FILE_SIZE", size);
        course.Stage("Create MD5 for File");
        course.Hash(course.path, md5);
        course.Say({words + "Create CMD5 : " + md5, words + "Create md5str : " + md5 + " filesize : " + size});
        course.Set("FILE_MD5", "'" + md5 + "'");
        course.Say({words + "Step2. Query current file start position"});
        course.Stage("inituploadfile");
        course.Post("/api/FS/inituploadfile",
                    R"({"checksum":")" + md5 + R"(","filename":"two.db","filesize":)" + size + "}", begun);
        course.Say({words + R"(Step2 inituploadjson["status"].get<std::string>() =  "OK" )" + begun});
        course.Set("FILE_UUID", "'id-two.db'");
        course.Chunk("0", content.substr(0, kChunk), size, ok);
        course.Set("FILE_UPLOAD_BYTES", "16384");
        course.Chunk("16384", content.substr(kChunk), size, fails ? "" : ok);
        if (fails) {
            course.Say({words + "uploadfilechunkjson == NULL"});
        } else {
            course.Set("FILE_UPLOAD_BYTES", size);
            course.Say({words + "Step 4 call finishupload: uploadbytes " + size + " " + size});
            course.Stage("finishupload uploadbytes:" + size);
            course.Call("Get", {"Start "},
                        {"Create an HTTP request handle.", "Send a request", "End a request", "Get the request"}, ok);
        }
        course.Set("FILE_SERVER_RESPONSE",
                   fails ? "'BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR'" : "'BG_UPLOAD_STATUS_SUCCESS'");
        course.Stage("uploading complete");
        course.Set("FILE_UPLOADED_TIME", "'2030-01-02 03:04:...'");
        course.Say({run + "file: two.db upload status: " + (fails ? "4" : "2")});
        course.Set("FILE_UPLOAD_STATUS", fails ? "4" : "2");
        course.Set("FILE_TRY_COUNT", "1");
        course.Set("FILE_STATUS", fails ? "3" : "1");
        course.Close();
        course.Say({run + "Return ..."});
        EXPECT_EQ(lines, course.lines);
        EXPECT_EQ(statements, course.updates);
        EXPECT_TRUE(server.files[name].bytes == content.substr(0, fails ? kChunk : content.size()));
    }
}

TEST_F(Upload, RecordsEachWayAnAttemptCanEnd) {
    const std::string unregistered = "3|3|1|0|BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR";
    const std::string size = std::to_string(bytes.size());
    struct Case {
        const char* name;
        std::size_t call;
        FileServer::Fault fault;
        std::string outcome;  // result code, state, tries, bytes, response
        std::int32_t result = BG_UPLOAD_STATUS_ERROR;
    };
    const std::vector<Case> cases = {
        {"all well", 99, {}, "2|1|1|" + size + "|BG_UPLOAD_STATUS_SUCCESS", BG_UPLOAD_STATUS_SUCCESS},
        {"registration without an answer", 0, kCut, unregistered},
        {"internal error", 0, {500, Status("OK")}, unregistered},
        {"moved nowhere", 0, {301, "x"}, unregistered},
        {"no content", 0, {204, ""}, unregistered},
        {"the word for a failure", 0, {200, "error"}, unregistered},
        {"the number for no answer", 0, {200, "0"}, unregistered},
        {"refused", 0, {200, Status("no\t\nway")}, "3|3|1|0|no  way"},
        {"a word that breaks its statement", 0, {200, Status("can't")}, "3|3|1|0|"},
        {"known", 0, {200, Status("UPLOAD_FINISHED")}, "2|1|1|0|UPLOAD_FINISHED", BG_UPLOAD_STATUS_SUCCESS},
        {"a huge answer", 0, {200, std::string(4 << 20, ' ') + Status("HU\\\"GE")}, "3|3|1|0|HU\"GE"},
        {"no answer to a chunk", 2, kCut, "4|3|1|16384|BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR"},
        {"second chunk refused", 2, {200, Status("FULL")}, "4|3|1|16384|FULL"},
        {"no answer to the end", chunks + 1, {500}, "5|3|1|" + size + "|BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR"},
        {"end refused", chunks + 1, {200, Status("NO")}, "5|3|1|" + size + "|BG_UPLOAD_STATUS_FINISHUPLOAD: NO"},
    };
    ASSERT_GE(chunks, 3U);
    for (const Case& one : cases) {
        StartAnew();
        server.faults[one.call] = one.fault;
        EXPECT_EQ(StartUpload(), one.result) << one.name;
        EXPECT_EQ(Outcome(), one.outcome + "|uploading complete|") << one.name;
        if (one.call < 99) {
            EXPECT_EQ(server.calls.size(), one.call + 1) << one.name << ": nothing is tried twice in one run";
        }
    }
}

TEST_F(Upload, GoesOnWhereTheServerStoppedAfterACutAtAnyCall) {
    for (std::size_t call = 0; call <= chunks + 1; ++call) {
        for (const FileServer::Fault& fault : {kCut, FileServer::Fault(200, "", true, true), {500}}) {
            StartAnew();
            server.faults[call] = fault;
            EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_ERROR);
            EXPECT_FALSE(server.files[kFile].finished && !fault.late);
            EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_SUCCESS) << call;
            EXPECT_TRUE(server.files[kFile].finished);
            EXPECT_TRUE(server.files[kFile].bytes == bytes) << call << ": a chunk went twice, or never";
            EXPECT_EQ(Columns("FILE_STATUS, FILE_TRY_COUNT"), "1|2|");
            EXPECT_EQ(machine.data_files(), kAtRest) << "a chunk that failed, or was taken unseen, goes";
        }
    }
}

TEST_F(Upload, BelievesWhateverOffsetTheServerNames) {
    const struct {
        std::string offset;
        std::size_t sent;  // chunks
        std::int32_t result = BG_UPLOAD_STATUS_ERROR;
    } cases[] = {{"16384.9", chunks - 1, BG_UPLOAD_STATUS_SUCCESS},
                 {"1.6384e4", chunks - 1, BG_UPLOAD_STATUS_SUCCESS},
                 {"0", chunks},
                 {"-1", chunks},
                 {"-32768", chunks + 2},
                 {"-2147483648", bytes.size() / kChunk + 100},  // a hundred more than the file has, and no end
                 {std::to_string(bytes.size()), 0},
                 {"1e30", 0},
                 {"18446744073709551615", 0}};
    for (const auto& one : cases) {
        StartAnew();
        server.faults[2] = kCut;
        StartUpload();
        const std::size_t before = server.calls.size();
        server.offset = one.offset;
        EXPECT_EQ(StartUpload(), one.result) << one.offset;
        EXPECT_EQ(server.calls.size() - before, one.sent + 2) << one.offset;
        EXPECT_EQ(server.files[kFile].bytes == bytes, one.result == BG_UPLOAD_STATUS_SUCCESS) << one.offset;
    }
}

TEST_F(Upload, SendsAnyFileInPiecesOfTheChosenSize) {
    write_text(kPath, std::string(600000, 'x'));
    for (const auto& [index, size] : {std::pair{0, 8192U}, {2, 32768U}, {6, 524288U}, {7, 8192U}}) {
        server.reset();
        server.faults[2] = kCut;
        EXPECT_EQ(Send({}, index), BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR);
        EXPECT_EQ(server.files[kFile].bytes.size(), size) << index;
    }
    StartAnew();
    write_text(kPath, std::string(kChunk + 100, 'x'));
    FileRecord record;
    record.md5 = record.uuid = "given";
    EXPECT_EQ(Send(record), BG_UPLOAD_STATUS_SUCCESS);
    EXPECT_EQ(server.files[kFile].md5, "given");
    EXPECT_EQ(server.calls.back(), "/api/FS/finishupload/id-x.db") << "the server's latest";
    EXPECT_EQ(Columns("FILE_UPLOAD_BYTES, FILE_UUID"), "16484||");
    server.reset();
    write_text(kPath, "");
    EXPECT_EQ(Send({}), BG_UPLOAD_STATUS_SUCCESS);
    EXPECT_EQ(server.calls.size(), 2U) << "no byte, no chunk";
}

// Each as the status of the first answer, and as the identifier: what it would do to its statement is not done.
TEST_F(Upload, LetsNoTextOfTheServersDoMoreThanBreakItsStatement) {
    const std::string stolen = platform::native_path(kDataFolder) + "stolen", rest = " WHERE FILE_NAME = 'x.db'; ";
    const std::string row = "INSERT INTO FILESTATUS (FILE_NAME, FILE_TYPE, FILE_CREATEDATE) VALUES ('y', 1, '";
    const std::vector<std::string> texts = {
        "x'" + rest + "ATTACH '" + stolen + "' AS s; CREATE TABLE s.t (a); --",
        "x'" + rest + "VACUUM INTO '" + stolen + "'; --",
        "x'" + rest + row + "2000",
        "x'; DELETE FROM FILESTATUS; --",
        "','",
        "', FILE_STATUS = '1",
        "' || FILE_NAME || '",
        "'",
        std::string("x\0' --", 6),
        std::string(2 << 20, 'x'),
    };
    for (const std::string& text : texts) {
        StartAnew();
        server.faults[0] = {200, DumpJson({{"status", text}})};
        const auto lines = Traced([&] { EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_ERROR); });
        const std::string words = "[BG_FILESTATUS_CONTROLLER][updateFileStatus] ";
        EXPECT_EQ(std::count(lines.begin(), lines.end(), words + "Error executing SQLite3 statemant"), 1);
        EXPECT_EQ(Outcome(), "3|3|1|0||uploading complete|") << text.substr(0, 99);
        StartAnew();
        server.faults[0] = {200, DumpJson({{"status", "OK"}, {"fileuuid", text}, {"filesize", bytes.size()}})};
        server.faults[1] = {200, Status("OK")};
        const std::int32_t result = StartUpload();
        EXPECT_TRUE(result == BG_UPLOAD_STATUS_SUCCESS || text.size() > 99999) << "which may be too long for a path";
        EXPECT_EQ(Columns("FILE_UUID, FILE_TRY_COUNT"), "|1|") << text.substr(0, 99);
        EXPECT_EQ(machine.query(kStatusDb, "SELECT FILE_NAME FROM FILESTATUS"), std::vector<Names>{{kFile}});
        EXPECT_EQ(machine.data_files(), kAtRest) << text.substr(0, 99);
    }
    EXPECT_LT(std::filesystem::file_size(platform::native_path(kDataFolder) + kStatusDb), 99999U);
    ExpectEventLog({});
}

TEST_F(Upload, TouchesNothingOutsideTheDataFolder) {
    const std::string victim = std::string(kProductFolder) + "victim";
    const std::string names[] = {"..\\victim",  "../victim", platform::native_path(victim),
                                 "x.db:s",      "x.db.",     "x.db ",
                                 ".",           "..",        "nul.db",
                                 "COM\xC2\xB9", "CONIN$",    "Lpt1 .x",
                                 "BGFS.db",     "bgfs.DB",   "x.db.cached"};
    write_text(victim, "victim");
    for (const std::string& name : names) {
        EXPECT_FALSE(IsRecordedName(name)) << name;
        Register(kFile, 2);
        SetValue(L"ODb_Filename", WidenBytes(name + ";1;2000-01-01"));
        Jobs().WriteEDbData();
        EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_SUCCESS);
        EXPECT_EQ(Columns("FILE_UPLOAD_STATUS, FILE_STATUS, FILE_UPLOAD_STAGE", name), "11|2|File Not Exist|");
        ChangeRows("UPDATE FILESTATUS SET FILE_STATUS = 0");
        BG_FILESTATUS_CONTROLLER().startDelete(1, 0, kStatusDb);
        EXPECT_EQ(Columns("FILE_STATUS", name), "2|");
        ChangeRows("DELETE FROM FILESTATUS");
    }
    EXPECT_EQ(server.calls.size(), 0U);
    EXPECT_EQ(read_text(victim), "victim");
    EXPECT_TRUE(read_text(kPath) == bytes);
    ExpectEventLog({});
    for (const char* name : {"x.db", ".x", "it's", "null", "COM10.db", "COM", "LPTX"}) {
        EXPECT_TRUE(IsBareFileName(name)) << name;
    }
    const std::string all = "it' OR 'a' = 'a";  // a file's name too
    write_text(kDataFolder + all, "");
    Register(kFile);
    ChangeRows("UPDATE FILESTATUS SET FILE_NAME = 'it'' OR ''a'' = ''a'");
    Register("z", 2);
    server.faults[0] = kCut;
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_ERROR);
    BG_FILESTATUS_CONTROLLER().startDelete(1, 0, kStatusDb);
    EXPECT_EQ(machine.data_files(), kAtRest);
    EXPECT_EQ(Columns("FILE_STATUS, FILE_TRY_COUNT, FILE_UPLOAD_STAGE", "z"), "0|0||") << "each statement is broken";
}

TEST_F(Upload, EndsEarlyForAFileThatCannotBeRead) {
    ASSERT_TRUE(platform::create_folder(kPath + "_MD5_0_16384"));
    EXPECT_EQ(Send({}), BG_UPLOAD_STATUS_MD5_ERROR);
    EXPECT_EQ(Outcome(), "0|0|0|0|BG_UPLOAD_STATUS_MD5_ERROR|uploading complete|");
    std::filesystem::resize_file(platform::native_path(kPath), 1U << 31);
    EXPECT_EQ(Send({}), BG_UPLOAD_STATUS_ERROR);
    EXPECT_EQ(Columns("FILE_UPLOAD_STAGE"), "filesize < 0|") << "no offset reaches its end";
    ASSERT_TRUE(platform::remove_file(kPath));
    for (const char* ending : {".cached", ".cached.temp", ".cached-journal", "_MD5_16384_9", "_MD5_-1_16384"}) {
        write_text(kPath + ending, "of a pass that was killed");
    }
    if (!platform::machine_folder().empty()) {
        const std::string lock = platform::machine_folder() + "/run/x.db.lock";
        std::filesystem::remove(lock);
        std::filesystem::create_directory(lock);
        EXPECT_EQ(Send({}), BG_UPLOAD_STATUS_FILE_NOT_EXIST);
        EXPECT_EQ(machine.data_files().size(), 7U) << "they may be another's, when the lock cannot be had";
        std::filesystem::remove(lock);
    }
    EXPECT_EQ(Send({}), BG_UPLOAD_STATUS_FILE_NOT_EXIST);
    EXPECT_EQ(Outcome(), "0|2|0|0|BG_UPLOAD_STATUS_MD5_ERROR|File Not Exist|") << "with the older response";
    EXPECT_EQ(machine.data_files(), (Names{kStatusDb, "x.db_MD5_0_16384"})) << "but for the folder of that name";
    EXPECT_EQ(BG_FILESTATUS_CONTROLLER().uploading(nullptr, {}, 1), BG_UPLOAD_STATUS_ERROR);
    EXPECT_EQ(server.calls.size(), 1U);
}

TEST_F(Upload, RunsThroughAllFilesThatAreDue) {
    initDB("y.db", "CREATE TABLE Other (a)");
    Register("y.db", 1, "2000-01-01");
    server.faults[0] = kCut;
    ChangeRows("UPDATE FILESTATUS SET FILE_TRY_COUNT = -4294967296 WHERE FILE_NAME = 'x.db'");
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_ERROR);
    EXPECT_EQ(Columns("FILE_STATUS") + Columns("FILE_STATUS", "y.db"), "3|1|");
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_SUCCESS);
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_FILEEMPTY);
    for (const char* size : {"4294967296", "NULL", "'some'"}) {
        Register("y.db", 1, "2000-01-01");
        ChangeRows(std::string("UPDATE FILESTATUS SET FILE_SIZE = ") + size + " WHERE FILE_NAME = 'y.db'");
        Register(kFile);
        EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_ERROR) << size;
        EXPECT_EQ(Columns("FILE_UPLOAD_STATUS, FILE_UPLOAD_STAGE", "y.db"), "12|filesize < 0|") << size;
        EXPECT_EQ(Columns("FILE_STATUS"), "1|") << "one row does not stop the others";
    }
    ChangeRows("DELETE FROM FILESTATUS WHERE FILE_NAME = 'y.db'");
    Register("gone.db");
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_SUCCESS);
    EXPECT_EQ(Columns("FILE_UPLOAD_STATUS, FILE_STATUS, FILE_TRY_COUNT", "gone.db"), "11|2|1|");
    EXPECT_FALSE(platform::file_exists(std::string(kDataFolder) + "gone.db"));
    if (!platform::machine_folder().empty()) {  // no other machine can be told to be offline
        write_text(platform::machine_folder() + "/network.json", R"({"online": false})");
        EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_NETWORK_ERROR);
        platform::remove_file(platform::machine_folder() + "/network.json");
    }
    BlockStatusDb(true);
    EXPECT_EQ(StartUpload(), BG_UPLOAD_STATUS_LIST_OPEN_ERROR);
}

TEST_F(Upload, BreaksOffForAnAnswerThatIsNone) {
    Register("y.db", 1, "2000-01-01");
    SetValue(L"upload", L"60");
    for (const char* body :
         {"", "{", "\xFF", "{}", "[1]", R"({"status":200})", R"({"status":null})", R"({"status":"OK"})",
          R"({"status":"OK","fileuuid":"u","filesize":"0"})", R"({"status":"OK","fileuuid":"u","filesize":true})"}) {
        StartAnew();
        server.faults[0] = {200, body};
        EXPECT_THROW(Jobs().DoUploadJob(CJ_UPLOAD), std::logic_error) << body;
        EXPECT_EQ(Columns("FILE_STATUS, FILE_UPLOAD_STATUS, FILE_TRY_COUNT, FILE_UPLOAD_STAGE"),
                  "0|1|0|inituploadfile|")
            << body;
        EXPECT_EQ(Columns("FILE_UPLOAD_STATUS", "y.db"), "0|");
        EXPECT_EQ(machine.data_files(), kAtRest);
    }
    EXPECT_EQ(Value(L"upload"), L"60") << "the outcome moves no timer";
    for (const std::size_t call : {std::size_t{2}, chunks + 1}) {
        StartAnew();
        server.faults[call] = {200, ""};
        EXPECT_THROW(StartUpload(), std::invalid_argument);
        EXPECT_EQ(Columns("FILE_UPLOAD_STATUS"), "1|");
    }
    ExpectEventLog({});
}

TEST_F(Upload, JobMovesItsTimerByTheOutcome) {
    const auto upload = [&](bool fails) {
        StartAnew();
        const std::int64_t now = SetTime() - 5;
        server.faults[fails ? 0 : 99] = kCut;
        Jobs().DoUploadJob(CJ_UPLOAD);
        return Value(L"upload") == ERROR_READREG ? 0 : std::stoll(Value(L"upload")) - now;
    };
    Jobs().DoUploadJob(~std::uint32_t{CJ_UPLOAD});
    EXPECT_EQ(server.calls.size(), 0U);
    EXPECT_EQ(upload(true), 3600 - 86400) << "a daily upload is due in an hour";
    EXPECT_EQ(upload(true), 7200 - 86400);
    ExpectEventLog({});
    initDB("w.db", "CREATE TABLE Other (a)");
    Register("w.db", 3);
    Register("young.db", 2, "2029-12-31 04:00:00");
    for (int number = 0; number < 11; ++number) {
        Register("sent" + std::to_string(number), 2, "20" + std::to_string(20 + number));
    }
    ChangeRows("UPDATE FILESTATUS SET FILE_STATUS = 1 WHERE FILE_NAME LIKE 'sent%'");
    EXPECT_EQ(upload(false), 0);
    ExpectEventLog({"UP SUCCESS"});
    EXPECT_TRUE(server.files["w.db"].finished) << "all three kinds go";
    EXPECT_EQ(server.files.size(), 2U);
    EXPECT_EQ(machine.query(kStatusDb, "SELECT MIN(FILE_CREATEDATE), COUNT(*) FROM FILESTATUS WHERE FILE_TYPE = 2"),
              (std::vector<Names>{{"2022", "10"}}))
        << "ten of a kind stay";
}

TEST_F(Upload, TakesNewFilesFromTheRegistry) {
    const std::wstring values[] = {L"ODb_Filename", L"EDb_Filename", L"WDb_Filename"};
    const auto take = [&](const std::wstring& text) {
        SetValue(values[1], text);
        Jobs().WriteEDbData();
        return Value(values[1]);
    };
    for (const wchar_t* text : {L"", L"e.db", L"e.db;2", L"e.db;2;2030-01-01;x"}) {
        EXPECT_EQ(take(text), L"") << "is discarded";
    }
    EXPECT_EQ(take(L"it'||'s;2;2030-01-01"), L"") << "is lost";
    EXPECT_THROW(take(L"e.db;two;2030-01-01"), std::invalid_argument);
    BlockStatusDb(true);
    EXPECT_EQ(take(L"e.db;2;2030-01-01 00:00:00"), L"e.db;2;2030-01-01 00:00:00") << "stays for the next pass";
    BlockStatusDb(false);
    SetValue(values[2], L"w.db;3;-");
    Jobs().WriteEDbData();
    EXPECT_EQ(Value(values[1]) + Value(values[2]), L"");
    EXPECT_EQ(Value(values[0]), ERROR_READREG);
    EXPECT_EQ(machine.query(kStatusDb, "SELECT FILE_NAME, FILE_TYPE, FILE_CREATEDATE FROM FILESTATUS ORDER BY 2"),
              (std::vector<Names>{{"x.db", "1", kNoDate}, {"e.db", "2", "2030-01-01 00:00:00"}, {"w.db", "3", "-"}}));
}

}  // namespace
}  // namespace zorvalis
