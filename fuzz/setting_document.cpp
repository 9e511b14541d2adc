#include <stdexcept>

#include "common/registry.h"
#include "jobs/job_manager.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "targets.h"
#include "upload/answer.h"

namespace zorvalis {
namespace {

// The errors of the JSON library and of the number parsers end the job that met them, and only that.
template <class Call>
void Try(Call call) {
    try {
        call();
    } catch (const std::logic_error&) {
    }
}

void ForgetTimers() {
    for (const wchar_t* value : {L"GetThermal", L"GetBatteryPower", L"GetSystemInfo", L"lastDojobTime"}) {
        DeleteRegValue(kLocalMachine, kProductKey, value);
    }
}

void ReadSettings(JobManager& jobs) {
    for (std::int32_t kind = 0; kind < 4; ++kind) {
        Try([&] { jobs.triggerCodeOf(kind); });
    }
    for (const wchar_t* action : {L"", L"ac_dc", L"wmi_event"}) {
        Try([&] { jobs.BigdataCheck(action, *action == L'\0', platform::now_seconds()); });
    }
    Try([] { isOverTotalCollectTime(); });
    Try([] { isSpecificDojobDay(); });
    ForgetTimers();
}

}  // namespace

void FuzzSettingDocument(const std::string& bytes) {
    JobManager& jobs = JobManager::GetInstance();  // made while the machine's setting file is still sound
    SettingFileManager manager;
    manager.SaveSettingFile(bytes);
    Try([&] { jobs.ReloadSettingFile(); });
    ReadSettings(jobs);
    Try([&] { manager.TakeAnswer(ParseAnswer(bytes)); });
    Try([&] { jobs.ReloadSettingFile(); });
    ReadSettings(jobs);
}

}  // namespace zorvalis
