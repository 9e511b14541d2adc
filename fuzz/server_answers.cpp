// The server's answers while a file is sent (FuzzServerAnswers): whatever it answers, the upload must end with a result
// code or with an error for bad input.
#include <sqlite3.h>

#include <cstring>
#include <memory>

#include "common/files.h"
#include "store/db_file.h"
#include "surroundings.h"
#include "upload/file_status.h"
#include "upload/upload_status.h"

using namespace zorvalis;

namespace {

constexpr char kFile[] = "x.db";
constexpr std::int32_t kSmallestChunks = 0;

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

// Makes the file to send. Returns the bytes of the status database with its row, without the resting transform.
std::string MakeFiles() {
    {
        BG_FILESTATUS_CONTROLLER controller;
        controller.fopenDB(kStatusDb);
        controller.setFileName(kFile);
        controller.commit();
    }
    write_text(std::string(kDataFolder) + kFile, std::string(20000, 'x'));  // three chunks
    std::string image = read_text(std::string(kDataFolder) + kStatusDb);
    for (char& byte : image) {
        byte = static_cast<char>(byte ^ kDbKey);
    }
    return image;
}

// A fresh copy in memory for each input: an answer's text becomes part of a statement and may change the database.
Database OpenStatusDb() {
    static const std::string kImage = MakeFiles();
    sqlite3* database = nullptr;
    sqlite3_open(":memory:", &database);
    const auto size = static_cast<sqlite3_int64>(kImage.size());
    auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(kImage.size()));
    std::memcpy(copy, kImage.data(), kImage.size());
    sqlite3_deserialize(database, "main", copy, size, size,
                        SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
    return Database(database);
}

// "!500\nbody" has the status 500, any other text 200.
ServerAnswer AnswerOf(std::string_view text) {
    if (!text.starts_with('!')) {
        return {L"200", std::string(text)};
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    return {std::wstring(text.begin() + 1, text.begin() + end),
            std::string(text.substr(std::min(end + 1, text.size())))};
}

std::vector<ServerAnswer> Answers(std::string_view text) {
    constexpr std::string_view kBetween = "\n--\n";
    std::vector<ServerAnswer> answers;
    for (std::size_t end = text.find(kBetween); end != std::string_view::npos; end = text.find(kBetween)) {
        answers.push_back(AnswerOf(text.substr(0, end)));
        text.remove_prefix(end + kBetween.size());
    }
    answers.push_back(AnswerOf(text));
    return answers;
}

}  // namespace

std::int32_t FuzzServerAnswers(std::string_view bytes) {
    FuzzMachine();
    const Database database = OpenStatusDb();
    static BG_FILESTATUS_CONTROLLER controller;
    SetAnswers(Answers(bytes));
    FileRecord record;
    record.fileName = kFile;
    return Attempt([&] { return controller.uploading(database.get(), record, kSmallestChunks); });
}
