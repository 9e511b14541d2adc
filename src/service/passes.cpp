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

// All timed work. Each job catches its own failures, so that every step runs; only the first use of JobManager may
// fail as a whole, for a setting file that is broken.
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

// The one place that lifts the suppression of lid and power source events, set when the service starts.
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

// The object is never run: it keeps the event provider registered for the length of the pass.
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
