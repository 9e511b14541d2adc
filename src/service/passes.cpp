#include "service/passes.h"

#include "common/log.h"
#include "common/registry.h"
#include "common/root.h"
#include "jobs/job_manager.h"
#include "jobs/product_activation.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"
#include "service/service_install.h"
#include "service/zorvalis_service.h"

namespace zorvalis {
namespace {

// A collection pass: all timed work, in this order. Each job catches its own errors, so the ones behind it run too.
// Only making the JobManager may throw and end the pass, when the setting file is broken.
void job0() {
    LogMessage("job0 <---");
    const std::int64_t now = platform::now_seconds();
    JobManager& jobManager = JobManager::GetInstance();
    jobManager.DoJob(L"jobCheckBgfsReg", 0, now);
    jobManager.DoJob(L"jobZprpCheckSN", 0, now);
    jobManager.DoJob(L"jobDownloadSettingFile", 0, now);
    jobManager.DoCollectJob(L"", 1, true, now);
    jobManager.DoJob(L"jobUpdateTaskScheduler", 0, now);
    LogMessage("job0  --->");
}

void job1() {
    LogMessage("job1 <---");
    if (isReadyToDoJobByManufacturingDate()) {
        activation::RunPass();
    }
    LogMessage("job1  --->");
}

// The service drops lid and power source events from its start on (see OnSettingChange); this is the one place that
// lets it record them again.
void LiftSkipOnPowerEvent() {
    if (ReadRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT") == L"1") {
        LogMessage("Disable SkipOnPowerEvent");
        WriteRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT", 0);
    }
}

void Traced(void (*pass)()) {
    struct Trace {
        Trace() { StartTrace(); }
        ~Trace() { StopTrace(); }
    } const trace;
    pass();
}

// `service` is never run. Kept: it registers the event provider for the length of the pass.
void RunPass(const char* name, void (*prepare)(), void (*pass)()) {
    AtRoot(name, [&] {
        const ZorvalisService service(kServiceName, true, true, false);
        prepare();
        Traced(pass);
    });
}

}  // namespace

void RunJob0() {
    RunPass("job0", LiftSkipOnPowerEvent, job0);
}

void RunJob1() {
    RunPass(
        "job1", [] {}, job1);
}

}  // namespace zorvalis
