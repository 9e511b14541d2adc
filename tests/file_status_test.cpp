#include "upload/file_status.h"

#include <gtest/gtest.h>

#include "support/file_server.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

using Names = std::vector<std::string>;

const std::string kCommit =
    "INSERT OR REPLACE INTO FILESTATUS ( FILE_NAME , FILE_TYPE , FILE_CREATEDATE , FILE_STATUS , FILE_SIZE , "
    "FILE_UPLOAD_BYTES , FILE_UPLOAD_START_TIME , FILE_UPLOADED_TIME , FILE_UPLOAD_STATUS , FILE_SERVER_RESPONSE , "
    "FILE_MD5 , FILE_UUID , FILE_TRY_COUNT , FILE_UPLOAD_STAGE )";

class FileStatus : public testing::Test {
protected:
    // The first column of a query, joined with blanks.
    std::string Column(const std::string& sql) const {
        std::string joined;
        for (const auto& row : machine.query(kStatusDb, sql)) {
            joined += (joined.empty() ? "" : " ") + row[0];
        }
        return joined;
    }

    // The names to send, "?" for one without.
    std::string Due(std::int32_t type = 1) {
        std::string joined;
        for (const FileRecord& record : BG_FILESTATUS_CONTROLLER().getUploadFileList(type, 2, kStatusDb)) {
            joined += (joined.empty() ? "" : " ") + (record.fileName.empty() ? "?" : record.fileName);
        }
        return joined;
    }

    void ExpectAtRest() const { EXPECT_EQ(machine.data_files(), Names{kStatusDb}); }

    const TestMachine machine;
};

TEST_F(FileStatus, RunsItsStatementsByteForByte) {
    EXPECT_EQ(Executed([] {
                  BG_FILESTATUS_CONTROLLER controller;
                  controller.fopenDB(kStatusDb);
                  controller.setFileName("x.db");
                  controller.setFileType(2);
                  controller.setFileCreateDate("2030-01-01");
                  controller.commit();
                  controller.setFileUploadStartTime("2030-01-02");
                  controller.setFileUploadedTime("2030-01-03");
                  controller.commit();
                  controller.getUploadFileList(2, 7, kStatusDb);
                  controller.startDelete(2, 0, kStatusDb);
                  controller.startDeleteFileRecord(kStatusDb);
                  const StatusCycle cycle(kStatusDb);
                  updateFileStatus(cycle.Connection(), {"FILE_SIZE", "FILE_MD5"}, {"-1", "'a b'"}, 2, "x.db");
              }),
              (Names{"CREATE TABLE IF NOT EXISTS FILESTATUS ( FILE_NAME TEXT PRIMARY KEY  , FILE_TYPE INTEGER , "
                     "FILE_CREATEDATE DATE , FILE_STATUS INTEGER , FILE_SIZE INTEGER , FILE_UPLOAD_BYTES INTEGER , "
                     "FILE_UPLOAD_START_TIME DATE , FILE_UPLOADED_TIME DATE , FILE_UPLOAD_STATUS INTEGER , "
                     "FILE_SERVER_RESPONSE TEXT , FILE_MD5 TEXT , FILE_UUID TEXT , FILE_TRY_COUNT INTEGER , "
                     "FILE_UPLOAD_STAGE TEXT );",
                     kCommit + "VALUES('x.db',2,'2030-01-01',0,0,0,'1900-01-01 00:00:00','1900-01-01 00:00:00',0,'',"
                               "'','',0,'');",
                     kCommit + "VALUES('x.db',2,'2030-01-01',0,0,0,'2030-01-02','2030-01-03',0,'','','',0,'');",
                     "select * from FILESTATUS where FILE_TYPE=2 and FILE_STATUS NOT IN (1,2) and FILE_TRY_COUNT < 24  "
                     "and FILE_CREATEDATE <= date('now','-7 days')  order by FILE_CREATEDATE asc",
                     "select FILE_NAME from FILESTATUS where FILE_TYPE =2 and FILE_STATUS !=2 order by FILE_CREATEDATE "
                     "asc",
                     "update FILESTATUS set FILE_STATUS = 2 where FILE_NAME = 'x.db'",
                     "DELETE FROM FILESTATUS where FILE_STATUS=2",
                     "update FILESTATUS set FILE_SIZE = -1 , FILE_MD5 = 'a b' where FILE_NAME = 'x.db'"}));
}

TEST_F(FileStatus, ListsWhatIsDueByTheMachinesClock) {
    SetClock(2030, 6, 15);
    for (const auto& [name, date] : {std::pair{"second", "2030-06-12 23:59:59"},
                                     {"third", "2030-06-13"},
                                     {"young", "2030-06-13 00:00:00"},
                                     {"first", kNoDate},
                                     {"sent", kNoDate},
                                     {"gone", kNoDate},
                                     {"failed", "2030-01-01"},
                                     {"tired", kNoDate}}) {
        Register(name, 1, date);
    }
    Register("other", 3);
    ChangeRows(
        "UPDATE FILESTATUS SET FILE_STATUS = CASE FILE_NAME WHEN 'sent' THEN 1 WHEN 'gone' THEN 2 WHEN 'failed' "
        "THEN 3 ELSE 0 END, FILE_TRY_COUNT = CASE FILE_NAME WHEN 'tired' THEN 24 WHEN 'failed' THEN 23 ELSE 0 END");
    EXPECT_EQ(Due(), "first failed second third");
    EXPECT_EQ(Due(2), "");
    EXPECT_EQ(Due(3), "other");
    SetClock(2030, 6, 16);
    Register("tired");  // once more: nothing is left of its progress
    EXPECT_EQ(Due(), "first tired failed second third young");
    EXPECT_EQ(BG_FILESTATUS_CONTROLLER().getDeletFileNameList(1, kStatusDb).size(), 7U) << "all but the gone one count";
}

TEST_F(FileStatus, KeepsTenFilesOfAKind) {
    for (int number = 0; number < 11; ++number) {
        const std::string name = std::to_string(number);
        Register(name, 1, "20" + std::to_string(30 - number));
        write_text(kDataFolder + name, "");
    }
    Register("other", 2);
    ChangeRows("UPDATE FILESTATUS SET FILE_STATUS = FILE_NAME != '10'");  // the oldest is the one that was never sent
    for (const char* ending : {".cached", ".cached.temp", "_MD5_0_16384", "_MD5_x"}) {
        write_text(std::string(kDataFolder) + "10" + ending, "");
    }
    BG_FILESTATUS_CONTROLLER controller;
    controller.startDelete(1, 11, kStatusDb);
    EXPECT_EQ(machine.data_files().size(), 16U);
    controller.startDelete(1, 10, kStatusDb);
    EXPECT_EQ(machine.data_files(), (Names{"0", "1", "10_MD5_x", "2", "3", "4", "5", "6", "7", "8", "9", kStatusDb}));
    EXPECT_EQ(Column("SELECT FILE_NAME FROM FILESTATUS WHERE FILE_STATUS = 2"), "10");
    controller.startDelete(1, 10, kStatusDb);
    controller.startDeleteFileRecord(kStatusDb);
    EXPECT_EQ(Column("SELECT COUNT(*) FROM FILESTATUS"), "11");
    ASSERT_TRUE(platform::remove_file(std::string(kDataFolder) + "9"));
    controller.startDelete(1, 9, kStatusDb);
    EXPECT_EQ(Column("SELECT FILE_NAME FROM FILESTATUS WHERE FILE_STATUS = 2"), "9") << "there was nothing to delete";
    Register(kStatusDb, 3);
    controller.startDelete(3, 0, kStatusDb);
    EXPECT_EQ(Column("SELECT FILE_STATUS FROM FILESTATUS WHERE FILE_TYPE = 3"), "2") << "it is open meanwhile";
}

TEST_F(FileStatus, TellsAnUnopenableDatabaseFromAnEmptyList) {
    Register("x.db");
    const std::string resting = read_text(std::string(kDataFolder) + kStatusDb);
    BlockStatusDb(true);
    BG_FILESTATUS_CONTROLLER controller;
    EXPECT_FALSE(controller.fopenDB(kStatusDb));
    controller.setFileName("y.db");
    controller.commit();
    EXPECT_EQ(controller.getDeletFileNameList(1, kStatusDb), Names{"OPEN ERROR"});
    EXPECT_EQ(Due(), "?");
    controller.startDelete(1, 0, kStatusDb);
    controller.startDeleteFileRecord(kStatusDb);
    EXPECT_TRUE(controller.fcloseDB());
    EXPECT_EQ(read_text(std::string(kDataFolder) + kStatusDb), resting);
    BlockStatusDb(false);
    EXPECT_TRUE(controller.fopenDB(kStatusDb)) << "the object stays usable";
    controller.commit();
    controller.fcloseDB();
    EXPECT_EQ(Due(), "x.db");
    EXPECT_EQ(Column("SELECT FILE_NAME FROM FILESTATUS"), "x.db y.db");
}

TEST_F(FileStatus, LosesNothingBetweenItsOwnConnectionAndThoseOfItsOperations) {
    BG_FILESTATUS_CONTROLLER controller;
    controller.setFileName("x.db");
    controller.setFileType(1);
    controller.commit();  // not by the constructor's connection
    EXPECT_EQ(controller.getUploadFileList(1, 2, kStatusDb).size(), 0U);
    EXPECT_TRUE(controller.fopenDB(kStatusDb));
    controller.commit();
    EXPECT_EQ(controller.getUploadFileList(1, 2, kStatusDb).size(), 1U) << "what was committed is there at once";
    controller.setFileName("y.db");
    controller.commit();  // closed by now
    EXPECT_TRUE(controller.fopenDB(kStatusDb));
    EXPECT_TRUE(controller.fopenDB(kStatusDb));
    controller.commit();
    EXPECT_EQ(controller.getDeletFileNameList(1, kStatusDb).size(), 2U);
    EXPECT_TRUE(controller.fcloseDB());
    EXPECT_EQ(Column("SELECT FILE_NAME FROM FILESTATUS"), "x.db y.db");
    ExpectAtRest();
}

TEST_F(FileStatus, ReadsWhatAColumnHolds) {
    Register("x.db");
    ChangeRows("UPDATE FILESTATUS SET FILE_MD5 = NULL, FILE_SIZE = '12 bytes'");
    EXPECT_EQ(Due(), "x.db");
    BG_FILESTATUS_CONTROLLER controller;
    const FileRecord record = controller.getUploadFileList(1, 2, kStatusDb)[0];
    EXPECT_EQ(record.md5, "ISNULL");
    EXPECT_EQ(record.size, 12);
    ExpectAtRest();
}

}  // namespace
}  // namespace zorvalis
