#include "jobs/job_manager.h"

#include <array>
#include <utility>

#include "client/device_modes.h"
#include "collection/zorv_win_io_dll.h"
#include "common/log.h"
#include "common/registry.h"
#include "jobs/product_activation.h"
#include "jobs/ruling_settings.h"
#include "jobs/schedule_predicates.h"
#include "platform/text.h"
#include "settings/period_codes.h"

namespace zorvalis {

struct JobManager::NamedJob {
    const wchar_t* name;
    const char* words;  // null for a job that says them itself, once it knows that it runs
    Job job;
};

// In the order in which a name is compared. A name that is not here does nothing.
const JobManager::NamedJob JobManager::kJobs[] = {
    {L"jobZprpCheckSN", "DoJob - JOB_ZPRPSN", &JobManager::ZprpCheckSN},
    {L"jobSetQuietFan", "DoJob - JOB_SETQUIETFAN", &JobManager::SetQuietFan},
    {L"jobSetBatteryHealth", "DoJob - JOB_SETBATTERYHEALTH", &JobManager::SetBatteryHealth},
    {L"jobDownloadSettingFile", "DoJob - JOB_DOWNLOADSETTINGFILE", &JobManager::DownloadSettingFile},
    {L"jobSetAppFolder", "DoJob - JOB_SETAPPFOLDER", &JobManager::SetAppFolder},
    {L"jobCreateTaskScheduler", nullptr, &JobManager::CreateTaskScheduler},
    {L"jobDisableTaskScheduler", "DoJob - JOB_DISABLETASKSCHEDULER", &JobManager::DisableTaskScheduler},
    {L"jobUpdateTaskScheduler", nullptr, &JobManager::UpdateTaskScheduler},
    {L"jobSetMainSwitch", "DoJob - JOB_SETMAINSWITCH", &JobManager::SetMainSwitch},
    {L"jobCheckBgfsReg", "DoJob - JOB_CHECKBGFSREG", &JobManager::CheckBgfsReg},
};

platform::Lock& JobLock() {
    static auto* const jobLock = new platform::Lock;
    return *jobLock;
}

JobManager& JobManager::GetInstance() {
    static JobManager* const instance = new JobManager;
    return *instance;
}

std::shared_ptr<const Settings> RulingSettings() {
    return JobManager::GetInstance().CurrentSettings();
}

JobManager::JobManager() {
    for (const PeriodCode& one : kPeriodCodes) {
        intervalSeconds.emplace(one.code, one.seconds);
        if (one.frequency != 0) {
            triggerCodes.emplace(one.code, one.frequency);
        }
    }
    ReloadSettingFile();
}

void JobManager::ReloadSettingFile() {
    LogMessage("[JobManager] ReloadSettingFile start");
    settingFile.ReloadSettingFile();
    LogMessage("[JobManager] ReloadSettingFile end");
}

void JobManager::RequestAppFolder(const wchar_t* folder) {
    const std::lock_guard<std::mutex> guard(requestMutex);
    appFolderRequest = folder != nullptr ? std::optional<std::wstring>(folder) : std::nullopt;
}

std::uint64_t JobManager::DoJob(std::wstring name, std::uint32_t param, std::int64_t now) {
    if (!JobLock().wait(60000)) {
        return 0;
    }
    std::uint64_t result = 0;
    try {
        result = RunJob(name, param, now);
    } catch (...) {
        ReportServiceEvent(L"DoJob Exception", kWarning);
    }
    JobLock().release();
    return result;
}

std::uint64_t JobManager::RunJob(const std::wstring& name, std::uint32_t param, std::int64_t now) {
    for (const NamedJob& one : kJobs) {
        if (name == one.name) {
            if (one.words != nullptr) {
                LogMessage(one.words);
            }
            return (this->*one.job)(param, now);
        }
    }
    return 0;
}

std::uint64_t JobManager::ZprpCheckSN(std::uint32_t, std::int64_t now) {
    activation::CheckSN(now);
    return 0;
}

std::uint64_t JobManager::SetQuietFan(std::uint32_t param, std::int64_t) {
    QuietFan().setQuietFan(param == JOB_TRIGGER_QUIET_FAN_ON, 1);
    return 0;
}

// Whatever is neither 80 nor 60 is 100, where the fan's like is off.
std::uint64_t JobManager::SetBatteryHealth(std::uint32_t param, std::int64_t) {
    const std::int32_t percent = param == JOB_TRIGGER_BATTERY_HEALTH_80   ? 80
                                 : param == JOB_TRIGGER_BATTERY_HEALTH_60 ? 60
                                                                          : 100;
    BatteryHealth().setBatteryHealth(percent, 1);
    return 0;
}

std::uint64_t JobManager::SetAppFolder(std::uint32_t, std::int64_t) {
    std::optional<std::wstring> folder;
    {
        const std::lock_guard<std::mutex> guard(requestMutex);
        folder = appFolderRequest;
    }
    std::array<char, 260> text{};
    platform::wide_to_multi_byte(platform::kCodePageUtf8, folder.value_or(L"").c_str(), -1, text.data(),
                                 static_cast<int>(text.size()));
    text.back() = '\0';
    LogMessage(std::string("[SystemInfoClass] SetAppFolder : ") + text.data());
    ZorvWinIoDll zorvWinIoDll;
    zorvWinIoDll.WMISetAppPath(folder ? folder->c_str() : nullptr, 1);
    return 0;
}

std::uint64_t JobManager::SetMainSwitch(std::uint32_t, std::int64_t) {
    if (!WriteRegString(kLocalMachine, kProductKey, L"MainSwitch", mainSwitchRequest != 0 ? L"1" : L"0")) {
        return 0;
    }
    ReloadSettingFile();
    return 1;
}

std::uint64_t JobManager::CheckBgfsReg(std::uint32_t, std::int64_t) {
    if (!isOverTotalCollectTime() && isSpecificDojobDay()) {
        WriteEDbData();
    }
    return 0;
}

}  // namespace zorvalis
