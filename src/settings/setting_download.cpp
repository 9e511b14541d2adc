// The download of SettingFileManager: the query to the server, and what the stored file may be replaced with.
#include <utility>

#include "base/text.h"
#include "collection/zorv_win_io_dll.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/version.h"
#include "settings/period_codes.h"
#include "settings/setting_file_manager.h"
#include "upload/answer.h"
#include "upload/http_client.h"

namespace zorvalis {
namespace {

constexpr std::int32_t kRefused = -1;

std::int32_t Refused(const char* words) {
    LogMessage(words);
    return kRefused;
}

}  // namespace

std::string ModelName(ZorvWinIoDll& library) {
    WideBuffer model{};
    library.ReadWide("WMIGetModelName", model.data(), 1);
    return NarrowBytes(WideText(model));
}

std::string SettingFileManager::GetModelName() const {
    ZorvWinIoDll zorvWinIoDll;
    return ModelName(zorvWinIoDll);
}

std::string QuerySettings(const std::string& server, const std::string& model, HttpReport* report) {
    Json request;
    request["clientversion"] = kServiceVersion;
    request["modelname"] = model;
    return HttpSSLPost(server, "/api/FS/query", DumpJson(request), kJsonContent, kConnectTimeout, kTransferTimeout,
                       kTransferTimeout, report);
}

Json SettingFileManager::GetSettingFileFromServer() const {
    LogMessage("[SettingFileManager] GetSettingFileFromServer");
    const std::string model = GetModelName();
    LogMessage("[SettingFileManager][GetSettingFileFromServer] mode : " + model + ", version : " + kServiceVersion);
    std::string body = QuerySettings(getBGServerURL(), model);
    if (body == kTransportError) {
        LogMessage("[SettingFileManager] post api return error");
        return 0;
    }
    LogMessage("[SettingFileManager] post return : " + body);
    Json answer = ParseAnswer(std::move(body));
    LogMessage("[SettingFileManager] parse ok");
    return answer;
}

const char* WhyRefused(const Json& tree) {
    std::string period;
    return !FindSettingText(tree, "downloadSetting", period)
               ? "[SettingFileManager] json do not have downloadSetting token"
           : PeriodSeconds(period) == 0 ? "[SettingFileManager] json downloadSetting syntax error"
                                        : nullptr;
}

std::int32_t SettingFileManager::UpdateSettingFile() {
    return TakeAnswer(GetSettingFileFromServer());
}

std::int32_t SettingFileManager::TakeAnswer(const Json& answer) {
    if (answer == 0) {
        return Refused("[SettingFileManager] downloadJson == NULL");
    }
    const auto status = answer.find("status");
    if (status == answer.end()) {
        return Refused("[SettingFileManager] Json file error");
    }
    if (*status != "OK") {
        // The server has no settings for this machine: the default file rules again. Kept: counts as a failed download.
        RemoveSettingFile();
        ReloadSettingFile();
        AskForReload();
        return Refused("[SettingFileManager] server return status not equal OK");
    }
    const auto version = answer.find("service_version");
    const auto text = answer.find("json_string");
    if (version == answer.end() || text == answer.end()) {
        return Refused("[SettingFileManager] Json file error");
    }
    Json tree = ParseJson(text->get<std::string>());
    if (const char* const words = WhyRefused(tree)) {
        return Refused(words);
    }
    // The version is the answer's and never the document's own. Kept: another one than this service's is stored too,
    // and the reload below then falls back to the default file.
    tree[kVersionSetting] = version->get<std::string>();
    SaveSettingFile(DumpJson(tree));
    LogMessage("[SettingFileManager] save ok");
    ReloadSettingFile();
    AskForReload();
    return 0;
}

// Wakes the reload loop of the running service, which is another process than a pass.
void SettingFileManager::AskForReload() const {
    WriteRegDword(kLocalMachine, kProductKey, L"NEEDRELOAD_SETTING_FILE", 1);
}

}  // namespace zorvalis
