// The one place through which every named piece of work passes: a singleton that runs one named job or one collection
// at a time, under one lock of this process. A caller that waits 60 seconds for the lock gives up, and its job is
// dropped without a word.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "collection/triggers.h"
#include "platform/lock.h"
#include "settings/setting_file_manager.h"

namespace zorvalis {

// The lock that every job of this process holds. Never destroyed, and there before JobManager is.
platform::Lock& JobLock();

class JobManager {
public:
    // Made on first use and never freed. The first caller pays for the first load of the settings and gets its errors.
    static JobManager& GetInstance();

    // Runs the job called `name`. 1 only when the main switch was changed. `now` is seconds since 1970, or 0 where the
    // job does not need it.
    std::uint64_t DoJob(std::wstring name, std::uint32_t param, std::int64_t now);

    // One collection: a timed one of what is due, or the one that `action` asks for. `now` 0 means the present time.
    void DoCollectJob(std::wstring action, std::uint32_t trigger, bool timed, std::int64_t now);

    // Takes no lock.
    void ReloadSettingFile();

    // The mask of what is to be done now. For timed kinds, it also remembers that they are being done.
    std::uint32_t BigdataCheck(std::wstring action, bool timed, std::int64_t now);

    // Whether a timer is due; except for "upload" and "getSettingFile" it starts anew then.
    bool checkRegTimer(std::wstring name, std::int64_t now, std::int32_t interval);

    // Starts a timer anew, or with `retry` moves it on so that it is due again in `delaySeconds`.
    void updateRegTimer(std::int32_t retry, std::wstring name, std::int32_t delaySeconds);

    // The frequency number of a kind's present period, 0 when it has none.
    std::uint32_t triggerCodeOf(std::int32_t kindIndex) const;

    // Asks the server for a new setting file: 0, -1 for a refusal, -2 without a network.
    std::int32_t UpdateSettingFile();

    // Thins out the files and sends those that are due.
    void DoUploadJob(std::uint32_t funcMask);

    // Hands the new files that the registry names over to the upload side.
    void WriteEDbData();
    void createDbsg(std::wstring text, std::wstring valueName);

    // The settings that rule now.
    std::shared_ptr<const Settings> CurrentSettings() const { return settingFile.Current(); }

    // Arguments of jobSetAppFolder and jobSetMainSwitch, stored by a client's call just before the job and outside the
    // lock, so that two clients can cross. The text is copied; null is handed on as null.
    void RequestAppFolder(const wchar_t* folder);
    void RequestMainSwitch(std::uint8_t on) { mainSwitchRequest = on; }

private:
    JobManager();

    using Job = std::uint64_t (JobManager::*)(std::uint32_t param, std::int64_t now);
    struct NamedJob;
    static const NamedJob kJobs[];

    std::uint64_t RunJob(const std::wstring& name, std::uint32_t param, std::int64_t now);
    std::uint64_t ZprpCheckSN(std::uint32_t param, std::int64_t now);
    std::uint64_t SetQuietFan(std::uint32_t param, std::int64_t now);
    std::uint64_t SetBatteryHealth(std::uint32_t param, std::int64_t now);
    std::uint64_t DownloadSettingFile(std::uint32_t param, std::int64_t now);
    std::uint64_t SetAppFolder(std::uint32_t param, std::int64_t now);
    std::uint64_t CreateTaskScheduler(std::uint32_t param, std::int64_t now);
    std::uint64_t DisableTaskScheduler(std::uint32_t param, std::int64_t now);
    std::uint64_t UpdateTaskScheduler(std::uint32_t param, std::int64_t now);
    std::uint64_t SetMainSwitch(std::uint32_t param, std::int64_t now);
    std::uint64_t CheckBgfsReg(std::uint32_t param, std::int64_t now);

    void Collect(const std::wstring& action, std::uint32_t trigger, bool timed, std::int64_t now);
    bool IsDue(std::size_t kind, const Settings& settings, std::int64_t now);

    std::map<std::string, std::int32_t> intervalSeconds;
    SettingFileManager settingFile;
    std::mutex requestMutex;
    std::optional<std::wstring> appFolderRequest;
    std::atomic<std::uint8_t> mainSwitchRequest{0};
    std::map<std::string, std::int32_t> triggerCodes;
};

}  // namespace zorvalis
