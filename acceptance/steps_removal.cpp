// Group 8: the product away, back again over its records, and away with them. They touch what the kit has installed and
// nothing else.
#include <windows.h>

#include <filesystem>

#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"
#include "kit.h"
#include "package.h"
#include "package_state.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "process.h"
#include "task_view.h"

namespace zorvalis::acceptance {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kUnknownProduct = 1605;
constexpr char kTaskRuns[] = "267009";  // SCHED_S_TASK_RUNNING
constexpr int kSeconds = 240;

void NeedKitsProduct(Findings& findings) {
    NeedOwnInstallation(findings);
    if (Kept(kOwnInstallation).empty()) {
        findings.Impossible("the kit has installed nothing here");
    }
}

void ExpectNoTraces(Findings& findings) {
    // A service stays until the last program that looked at it lets go.
    Until(10, [] { return TracesOfProduct().empty(); });
    const auto traces = TracesOfProduct();
    findings.ExpectNumber(static_cast<long long>(traces.size()), 0, "traces of the product");
    for (const std::string& trace : traces) {
        findings.Saw("still there: " + trace);
    }
}

void KeepsRecords(Findings& findings) {
    NeedKitsProduct(findings);
    TaskSchedulerSetting().disableTask(kCollectionTask);  // no pass is to come between the looks, and none to run
    long status = 0;
    Until(60, [&] { return ViewTask(WideToUtf8(kCollectionTask), status)["LastTaskResult"] != kTaskRuns; });
    TakeHardwareLibrary();
    const auto settings = Settings();
    const auto records = Records();
    ExpectInstaller(findings, 0, "/x", NewPackage());
    ExpectNoTraces(findings);
    findings.Expect(!records.empty(), "there are records to keep, from step 1.8");
    ExpectSame(findings, records, Records(), "the files of records are as they were");
    ExpectSame(findings, settings, Settings(), "the values of the product's key are as they were");
}

void FindsRecordsAgain(Findings& findings) {
    NeedKitsProduct(findings);
    const auto records = Records();
    ExpectInstaller(findings, 0, "/i", NewPackage());
    ExpectServiceEntry(findings);
    findings.Expect(PutHardwareLibrary(), "the stand-in hardware library can be put beside the executable");
    DeleteRegValue(kLocalMachine, kProductKey, L"GetThermal");
    const Ended pass = RunProgram(Quoted(ProgramFolder() + "\\ZorvalisWinService.exe") + " -j0", 60);
    TakeHardwareLibrary();
    findings.Expect(pass.inTime && pass.code == 0, "a pass ends in time, with 0");
    int grown = 0;
    const auto after = Records();
    for (const auto& [path, bytes] : records) {
        const auto now = after.find(path);
        findings.Expect(now != after.end(), path + " is still there");
        grown += now != after.end() && now->second != bytes ? 1 : 0;
    }
    findings.Expect(grown > 0, "the pass has put its row into a file that was there");
}

void LeavesNothing(Findings& findings) {
    NeedKitsProduct(findings);
    const std::string code = InstalledCode();
    TakeHardwareLibrary();
    ExpectInstaller(findings, 0, "/x", code, "PURGE=1");
    ExpectNoTraces(findings);
    std::error_code ignored;
    // Folders and keys above stay only for what others have put there.
    findings.Expect(!fs::exists(platform::to_wide(DataFolder()), ignored), DataFolder() + " is gone");
    findings.Expect(!fs::exists(platform::to_wide(MakersFolder()), ignored) ||
                        !fs::is_empty(platform::to_wide(MakersFolder()), ignored),
                    MakersFolder() + " is gone, or has something of others");
    std::vector<std::wstring> keys;
    std::vector<platform::RegistryValue> values;
    findings.Expect(!platform::list_registry_key(kLocalMachine, kProductKey, keys, values),
                    "the product's key is gone");
    findings.Expect(!platform::list_registry_key(kLocalMachine, L"SOFTWARE\\Zorv", keys, values) || !keys.empty() ||
                        !values.empty(),
                    "the key above it is gone, or has something of others");
    if (!IsRegistered()) {
        Forget(kOwnInstallation);
        Forget(kBeforeRestart);
    }
    ExpectInstaller(findings, kUnknownProduct, "/x", code);  // a second time
}

}  // namespace

std::vector<Step> RemovalSteps() {
    return {
        {"8.1", "A removal leaves records and settings, and nothing else", KeepsRecords, kSeconds},
        {"8.2", "A new installation goes on with the records that are there", FindsRecordsAgain, kSeconds, nullptr,
         false},
        {"8.3", "A removal with PURGE=1 leaves nothing, and a second one ends with 1605", LeavesNothing, kSeconds,
         nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
