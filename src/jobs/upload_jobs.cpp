// The jobs of JobManager that meet the server: the download of settings, the upload of files, and the hand-over of new
// files to the upload.
#include <array>

#include "base/number.h"
#include "base/text.h"
#include "common/log.h"
#include "common/registry.h"
#include "jobs/job_manager.h"
#include "jobs/rules.h"
#include "upload/file_status.h"
#include "upload/http_client.h"
#include "upload/upload_status.h"

namespace zorvalis {
namespace {

constexpr std::int32_t kNoNetwork = -2;

}  // namespace

std::uint64_t JobManager::DownloadSettingFile(std::uint32_t, std::int64_t now) {
    std::string code;
    if (!FindSettingText(CurrentSettings()->tree, "downloadSetting", code)) {
        return 0;
    }
    const auto period = intervalSeconds.find(code);
    if (period == intervalSeconds.end() || !checkRegTimer(L"getSettingFile", now, period->second)) {
        return 0;
    }
    const std::int32_t result = UpdateSettingFile();
    if (result == kNoNetwork) {
        updateRegTimer(1, L"getSettingFile", kRetryDelay);
        LogMessage("[DownloadSettingFile] Download fail, no network, set retry. (1 hour)");
        return 0;
    }
    updateRegTimer(0, L"getSettingFile", 0);
    // The words say one day; the retry comes after the period of "downloadSetting".
    LogMessage(result == 0 ? "[DownloadSettingFile] Download success."
                           : "[DownloadSettingFile] Download fail, other error, set retry. (1 day)");
    return 0;
}

std::int32_t JobManager::UpdateSettingFile() {
    LogMessage("[JobManager][UpdateSettingFile] ====== UpdateSettingFile Start======");
    if (!checkNewtWork()) {
        LogMessage("[JobManager][UpdateSettingFile] network error");
        return kNoNetwork;
    }
    const std::int32_t result = settingFile.UpdateSettingFile();
    LogMessage("[JobManager][UpdateSettingFile] ====== UpdateSettingFile End======");
    return result;
}

void JobManager::DoUploadJob(std::uint32_t funcMask) {
    if ((funcMask & CJ_UPLOAD) == 0) {
        return;
    }
    LogMessage("JobManager - DoUploadJob");
    BG_FILESTATUS_CONTROLLER controller;
    bool failed = false;
    for (const std::int32_t kind : {1, 2, 3}) {
        controller.startDelete(kind, kKeptFiles, kStatusDb);
        controller.startDeleteFileRecord(kStatusDb);
        const std::int32_t result = controller.startUpload(kind, kChunkIndex, kAgeInDays, kStatusDb);
        failed |= result != BG_UPLOAD_STATUS_SUCCESS && result != BG_UPLOAD_STATUS_FILEEMPTY;
    }
    if (failed) {
        updateRegTimer(1, L"upload", kRetryDelay);
    } else {
        updateRegTimer(0, L"upload", 0);
        ReportServiceEvent(L"UP SUCCESS", kInformation);
    }
}

void JobManager::WriteEDbData() {
    struct NewFile {
        const wchar_t* value;
        const char* words;
    };
    constexpr std::array<NewFile, 3> kNewFiles = {{
        {L"ODb_Filename", "Do WriteEDbData : ODB_FILENAME"},
        {L"EDb_Filename", "Do WriteEDbData : EDB_FILENAME"},
        {L"WDb_Filename", "Do WriteEDbData : WDB_FILENAME"},
    }};
    LogMessage("[JobManager] WriteEDbData");
    for (const NewFile& one : kNewFiles) {
        const std::wstring text = ReadRegString(kLocalMachine, kProductKey, one.value);
        if (text != ERROR_READREG) {
            LogMessage(one.words);
            createDbsg(text, one.value);
        }
    }
}

void JobManager::createDbsg(std::wstring text, std::wstring valueName) {
    const std::vector<std::string> fields = SplitString(NarrowBytes(text), ';');
    if (fields.size() != 3) {
        WriteRegString(kLocalMachine, kProductKey, valueName, L"");
        return;
    }
    LogMessage("[JobManager] create dbsg");
    const std::int32_t type = ParseInt32(fields[1]);
    BG_FILESTATUS_CONTROLLER controller;
    if (!controller.fopenDB(kStatusDb)) {
        LogMessage("[JobManager] genDB: fopenDB fail");
        return;  // the value stays for the next pass
    }
    controller.setFileName(fields[0]);
    controller.setFileType(type);
    controller.setFileCreateDate(fields[2]);
    controller.commit();
    controller.fcloseDB();
    WriteRegString(kLocalMachine, kProductKey, valueName, L"");
}

}  // namespace zorvalis
