#include <sqlite3.h>

#include <memory>
#include <stdexcept>

#include "targets.h"
#include "upload/answer.h"
#include "upload/file_status.h"

namespace zorvalis {
namespace {

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

Database OneRow() {
    sqlite3* database = nullptr;
    sqlite3_open(":memory:", &database);
    sqlite3_exec(database,
                 "CREATE TABLE FILESTATUS (FILE_NAME TEXT, FILE_SERVER_RESPONSE TEXT, FILE_UUID TEXT, "
                 "FILE_UPLOAD_BYTES INTEGER); INSERT INTO FILESTATUS VALUES ('x.db', '', '', 0)",
                 nullptr, nullptr, nullptr);
    return {database, sqlite3_close};
}

}  // namespace

void FuzzServerAnswer(const std::string& bytes) {
    const Database database = OneRow();
    try {
        const Json answer = ParseAnswer(bytes);
        DumpJson(answer);
        updateFileStatus(FILE_SERVER_RESPONSE, database.get(), "x.db", "'" + AnswerText(answer, "status") + "'");
        updateFileStatus(FILE_UUID, database.get(), "x.db", "'" + AnswerText(answer, "fileuuid") + "'");
        updateFileStatus(FILE_UPLOAD_BYTES, database.get(), "x.db", std::to_string(AnswerNumber(answer, "filesize")));
    } catch (const std::logic_error&) {  // ends the upload of the file
    }
}

}  // namespace zorvalis
