// `zorvctl uploads`: how far each file has got on its way to the server. The status database is only read.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "commands.h"
#include "common/files.h"
#include "database_reader.h"
#include "facts.h"
#include "host.h"
#include "machine_views.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "upload/file_status.h"
#include "upload/upload_status.h"
#include "uploads.h"

namespace zorvalis {

std::vector<FileRecord> ReadRecords() {
    // Not as a native path: a file of the machine is opened without waiting for a pipe in its place.
    const std::string path = std::string(kDataFolder) + kStatusDb;
    std::vector<FileRecord> records;
    if (!platform::file_exists(path)) {
        return records;
    }
    const DatabaseReader reader(path);
    const std::vector<std::string> tables = reader.TableNames();
    if (std::find(tables.begin(), tables.end(), "FILESTATUS") == tables.end()) {
        return records;
    }
    std::vector<std::string> columns;
    for (const FileColumnRow& column : kFileColumns) {
        columns.emplace_back(column.name);
    }
    for (const Row& row : reader.Read("FILESTATUS", columns, 0).rows) {
        FileRecord& record = records.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (const auto number = kFileColumns[i].number) {
                record.*number = static_cast<std::int32_t>(std::strtol(row[i].text.c_str(), nullptr, 10));
            } else {
                record.*kFileColumns[i].text = row[i].text;
            }
        }
    }
    std::stable_sort(records.begin(), records.end(),
                     [](const FileRecord& a, const FileRecord& b) { return a.createDate < b.createDate; });
    return records;
}

// What an attempt's code means.
constexpr struct {
    UploadStatus status;
    const char* words;
} kOutcomes[] = {
    {BG_UPLOAD_STATUS_IN_PROGRESS, "on its way, unless the pass was cut off"},
    {BG_UPLOAD_STATUS_SUCCESS, "sent"},
    {BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR, "the server did not take its announcement"},
    {BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR, "a piece of it was not taken"},
    {BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR, "all was sent, but the server did not confirm it"},
    {BG_UPLOAD_STATUS_BASE64_ERROR, "a piece of it could not be read from the disk"},
    {BG_UPLOAD_STATUS_MD5_ERROR, "its checksum could not be made: it could not be read"},
    {BG_UPLOAD_STATUS_FILE_NOT_EXIST, "it was not on the disk"},
    {BG_UPLOAD_STATUS_ERROR, "it could not be measured"},
};

std::string OutcomeWords(const FileRecord& record) {
    for (const auto& [status, words] : kOutcomes) {
        if (status == record.uploadStatus) {
            // An answer in the service's own words stands for one that did not come, or not with status 200.
            const bool asked = status >= BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR &&
                               status <= BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR && !record.serverResponse.empty();
            const bool answered = !record.serverResponse.starts_with("BG_UPLOAD_STATUS_") ||
                                  record.serverResponse.find(": ") != std::string::npos;
            return words + std::string(!asked     ? ""
                                       : answered ? ": the server answered " + record.serverResponse
                                                  : ": not reached, or no answer with status 200");
        }
    }
    return "";
}

namespace {

constexpr std::size_t kNewest = 10;

struct UploadsOptions {
    bool all = false, json = false, watch = false;
};

// A record of the status database in words, for printing.
struct View {
    explicit View(const FileRecord& record);
    std::string Text() const;
    Json AsJson() const;

    const FileRecord& record;
    std::string type, state;
    int age = -1;           // days; -1 for a file without a date
    std::int64_t size = 0;  // -1: not on disk and never measured
    std::int64_t percent = 0;
};

View::View(const FileRecord& row) : record(row) {
    constexpr const char* kTypes[] = {"timed samples", "power and mode events", "hardware events"};
    type = record.fileType >= 1 && record.fileType <= 3 ? kTypes[record.fileType - 1]
                                                        : "type " + std::to_string(record.fileType);
    // Days in UTC, as the upload counts them when it selects files.
    using Days = std::chrono::sys_days;
    int year = 0;
    unsigned month = 0, day = 0;
    if (record.createDate != kNoDate && std::sscanf(record.createDate.c_str(), "%d-%u-%u", &year, &month, &day) == 3) {
        const Days today(std::chrono::days(platform::now_seconds() / 86400));
        age = static_cast<int>((today - Days(std::chrono::year(year) / month / day)).count());
    }
    const bool young = record.createDate != kNoDate && age < kAgeInDays;
    state = record.status == 1                                    ? "uploaded"
            : record.status == 2                                  ? "gone from disk, to be forgotten"
            : record.tryCount >= kMostTries                       ? "given up"
            : record.uploadStatus == BG_UPLOAD_STATUS_IN_PROGRESS ? "being sent, unless the pass was cut off"
            : record.status == 3                                  ? "failed, tried again"
            : young                                               ? "waits until it is two days old"
                                                                  : "to be sent";
    size = record.size > 0 ? record.size : GetFileSize(kDataFolder + record.fileName);
    const std::int64_t sent = std::clamp<std::int64_t>(record.uploadBytes, 0, std::max<std::int64_t>(size, 0));
    percent = record.status == 1 ? 100 : size > 0 ? sent * 100 / size : 0;
}

std::string View::Text() const {
    const std::string madeOn = age < 0    ? ""
                               : age == 0 ? ", made today"
                                          : ", " + std::to_string(age) + (age == 1 ? " day old" : " days old");
    const auto full = static_cast<std::size_t>(percent / 5);
    const std::string bar = "[" + std::string(full, '#') + std::string(20 - full, '.') + "]";
    const std::string answer = ReadableText(record.serverResponse), stage = ReadableText(record.uploadStage);
    const std::string outcome = ReadableText(OutcomeWords(record)), when = ReadableText(record.uploadedTime);
    // Each attempt that came to the server ends in the stage "uploading complete", a failed one too.
    const bool ended = record.uploadStage == "uploading complete";
    return ReadableText(record.fileName) + "\n    " + type + madeOn + ": " + state + "\n    " + bar + " " +
           std::to_string(percent) + "% of " + (size < 0 ? "an unknown number of" : std::to_string(size)) +
           " bytes, try " + std::to_string(record.tryCount) + " of " + std::to_string(kMostTries) + "\n" +
           (answer.empty() ? "" : "    last answer: " + answer + "\n") +
           (outcome.empty() ? "" : "    last attempt: " + when + ", " + outcome + "\n") +
           (stage.empty() || ended ? "" : "    stage: " + stage + "\n");
}

Json View::AsJson() const {
    const auto text = [](const std::string& bytes) { return ReadableText(bytes, false); };
    return {{"file", text(record.fileName)},
            {"type", type},
            {"ageInDays", age < 0 ? Json(nullptr) : Json(age)},
            {"state", state},
            {"size", size < 0 ? Json(nullptr) : Json(size)},
            {"sentBytes", record.uploadBytes},
            {"percent", percent},
            {"tries", record.tryCount},
            {"answer", text(record.serverResponse)},
            {"stage", text(record.uploadStage)},
            {"outcome", text(OutcomeWords(record))},
            {"attempted", record.uploadedTime == kNoDate ? Json(nullptr) : Json(text(record.uploadedTime))}};
}

// When the next upload is due. Broken settings give their fault instead, so that the files can still be listed.
Due NextUpload() {
    Facts facts = ReadFacts();
    if (!facts.fault.empty()) {
        return {std::nullopt, facts.fault};
    }
    Due due = facts.due["upload"];
    const std::string heldBack = facts.HeldBack();
    if (!heldBack.empty() && !due.words.starts_with(heldBack)) {
        due.words += (due.at ? ", but held back: " : ": ") + heldBack;
    }
    return due;
}

std::string UploadsText(const UploadsOptions& options) {
    if (options.json) {
        return DumpJson(UploadsAsJson(options.all)) + "\n";
    }
    const std::vector<FileRecord> records = ReadRecords();
    const std::size_t shown = options.all ? records.size() : std::min(records.size(), kNewest);
    std::string text;
    for (std::size_t i = records.size() - shown; i < records.size(); ++i) {
        text += View(records[i]).Text();
    }
    if (shown < records.size()) {
        text += "The newest " + std::to_string(shown) + " of " + std::to_string(records.size()) +
                " files; --all shows the others.\n";
    }
    return (records.empty() ? "no file has been registered for upload yet\n" : text) +
           "Next upload: " + ReadableText(NextUpload().words) + ".\n";
}

void PrintUploads(const UploadsOptions& options) {
    CheckMachine();
    std::string before = UploadsText(options);
    Print(before);
    if (!options.watch) {
        return;
    }
    CatchInterruption();
    while (!Interrupted()) {
        FlushOutput();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        std::string text = UploadsText(options);
        if (text != before) {
            // In a terminal from the top, else as another block.
            Print((TerminalWidth() > 0 ? "\x1b[H\x1b[2J" : options.json ? "" : "\n") + text);
            before = std::move(text);
        }
    }
}

}  // namespace

Json UploadsAsJson(bool all) {
    CheckMachine();
    const std::vector<FileRecord> records = ReadRecords();
    Json files = Json::array();
    for (std::size_t i = all ? 0 : records.size() - std::min(records.size(), kNewest); i < records.size(); ++i) {
        files.push_back(View(records[i]).AsJson());
    }
    const Due due = NextUpload();
    const Json next = due.at ? Json(*due.at) : Json(nullptr);
    return {{"files", files}, {"nextUpload", next}, {"nextUploadInWords", ReadableText(due.words)}};
}

void AddUploadsCommand(CLI::App& app) {
    const auto options = std::make_shared<UploadsOptions>();
    CLI::App* uploads = app.add_subcommand("uploads", "Says how far each file is on its way to the server");
    uploads->add_flag("--all", options->all, "All files, not the newest ten alone");
    uploads->add_flag("--json", options->json, "As JSON, times in seconds since 1970");
    uploads->add_flag("--watch", options->watch, "Prints them again whenever something has changed, until Ctrl-C");
    uploads->callback([options] { PrintUploads(*options); });
}

}  // namespace zorvalis
