// The jobs that keep the scheduled task armed: made two minutes after the service starts and after a resume, off while
// the machine is, and put off to the next day by the pass that finds the do-job day over.
#include "common/log.h"
#include "jobs/job_manager.h"
#include "jobs/product_activation.h"
#include "jobs/schedule_predicates.h"
#include "jobs/task_scheduler_setting.h"

namespace zorvalis {
namespace {

void SetCollectionTask(int startTomorrow) {
    TaskSchedulerSetting().SetSpecificTimeTriggerTmer(kCollectionTask, kPassInterval, L"PT14M", L"-j0", startTomorrow);
}

}  // namespace

std::uint64_t JobManager::CreateTaskScheduler(std::uint32_t, std::int64_t) {
    if (!isReadyToDoJobByManufacturingDate()) {
        return 0;
    }
    LogMessage("DoJob - JOB_CREATETASKSCHEDULER");
    SetCollectionTask(0);
    activation::CheckTask();
    return 0;
}

std::uint64_t JobManager::DisableTaskScheduler(std::uint32_t, std::int64_t) {
    TaskSchedulerSetting bridge;
    bridge.disableTask(kCollectionTask);
    bridge.disableTask(kActivationTask);
    return 0;
}

std::uint64_t JobManager::UpdateTaskScheduler(std::uint32_t, std::int64_t) {
    if (!isReadyToDoJobByManufacturingDate()) {
        return 0;
    }
    LogMessage("DoJob - JOB_UPDATETASKSCHEDULER");
    if (isSpecificDojobDay()) {
        return 0;
    }
    TaskSchedulerSetting().disableTask(kCollectionTask);
    SetCollectionTask(1);
    return 0;
}

}  // namespace zorvalis
