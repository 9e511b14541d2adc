// The executable's own -install and -remove, tried with a copy, while the product is not installed.
#include <windows.h>

#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"
#include "kit.h"
#include "package.h"
#include "package_copy.h"
#include "platform/clock.h"
#include "platform/task_scheduler.h"
#include "platform/text.h"
#include "polling.h"
#include "process.h"
#include "product_service.h"
#include "steps_package.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kKept[] = "registered by -install";

// The work folder with the executable in it, and the marks of its -install, which go with the object.
class Copy {
public:
    explicit Copy(Findings& findings) : findings_(findings) {
        Keep(kKept, "1");
        const unsigned long error = Unpack(NewPackage(), "Service", path);
        if (error != ERROR_SUCCESS) {
            RemoveOwnEntry();
            findings.Fail("the executable can be taken out of the package: " + ErrorText(error));
        }
    }
    ~Copy() { RemoveOwnEntry(); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    void Expect(const char* option, const std::string& words) const {
        const Ended ended = RunProgram(Quoted(path) + " " + option, 60);
        std::string output = ended.output;
        std::erase_if(output, [](char each) { return each == '\r' || each == '\n'; });
        findings_.Expect(ended.started && ended.inTime, std::string(option) + " ends in time");
        findings_.ExpectNumber(ended.code, 0, std::string("the exit code of ") + option);
        findings_.ExpectText(output, words, "its words");
    }

private:
    Findings& findings_;
    const WorkFolder folder_;

public:
    const std::string path = WorkFolder::Path("ZorvalisWinService.exe");
};

void ExpectEntry(Findings& findings, const std::string& path) {
    const OwnedService service = OpenProduct(SERVICE_QUERY_CONFIG);
    alignas(QUERY_SERVICE_CONFIGW) BYTE block[8192] = {};
    DWORD size = 0;
    auto* const entry = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block);
    if (::QueryServiceConfigW(service.get(), entry, sizeof block, &size) == FALSE) {
        findings.Fail("the service's entry can be read: " + ErrorText(::GetLastError()));
    }
    findings.ExpectText(platform::to_utf8(entry->lpBinaryPathName), path, "its path, without quotes");
    findings.ExpectNumber(entry->dwServiceType, SERVICE_WIN32_OWN_PROCESS, "its type");
    findings.ExpectNumber(entry->dwStartType, SERVICE_AUTO_START, "its start");
    findings.ExpectNumber(entry->dwErrorControl, SERVICE_ERROR_NORMAL, "its error control");
    findings.ExpectText(platform::to_utf8(entry->lpServiceStartName), "LocalSystem", "its account");
    findings.ExpectText(platform::to_utf8(entry->lpDisplayName), "Zorvalis", "its name for people");
    findings.Expect(entry->lpDependencies == nullptr || *entry->lpDependencies == L'\0',
                    "it depends on no other service");
}

void ExpectRemoved(Findings& findings, const Copy& copy) {
    copy.Expect("-remove", "Zorvalis is removed.");
    findings.Expect(Until(10, [] { return !IsRegistered(); }), "the service's entry is gone");
}

platform::TaskResult MakeTask(const wchar_t* name, const std::string& path) {
    return platform::register_task(WideToUtf8(name), {.author = "zorv-acceptance",
                                                      .run_level = 1,
                                                      .execution_time_limit = "PT5M",
                                                      .disallow_start_if_on_batteries = false,
                                                      .trigger_id = "zorv-acceptance",
                                                      .start_boundary = "2099-01-01T00:00:00",  // never
                                                      .interval = "PT5M",
                                                      .path = path,
                                                      .arguments = "-j1",
                                                      .user = "SYSTEM",
                                                      .logon_type = 4});
}

}  // namespace

void InstallsItself(Findings& findings) {
    NeedNoProduct(findings);
    const Copy copy(findings);
    copy.Expect("-install", "Zorvalis is installed.");
    ExpectEntry(findings, copy.path);
    copy.Expect("-install", "CreateService failed w/err 0x00000431");  // it is there
    ExpectRemoved(findings, copy);
    copy.Expect("-remove", "OpenService failed w/err 0x00000424");  // it is not there
    for (const std::string& trace : TracesOfProduct()) {
        findings.Expect(false, "nothing is left, but there is " + trace);
    }
}

void RemovesTasks(Findings& findings) {
    NeedNoProduct(findings);
    const Copy copy(findings);
    for (const wchar_t* name : {kCollectionTask, kActivationTask}) {
        const platform::TaskResult made = MakeTask(name, copy.path);
        if (made.status == E_NOTIMPL) {
            findings.Impossible("Task Scheduler has no more than stubs here");
        }
        if (made.status < 0) {
            findings.Fail("a task can be registered: " + ErrorText(static_cast<unsigned long>(made.status)));
        }
    }
    copy.Expect("-install", "Zorvalis is installed.");
    ExpectRemoved(findings, copy);
    for (const wchar_t* name : {kCollectionTask, kActivationTask}) {
        platform::RegisteredTask task;
        findings.Expect(
            platform::find_task(WideToUtf8(name), platform::now_seconds(), task).status == platform::kNoSuchTask,
            "the task " + WideToUtf8(name) + " is gone");
    }
}

// Entry and tasks are the kit's while the mark is kept: the step begins where there is neither.
void RemoveOwnEntry() {
    if (Kept(kKept).empty()) {
        return;
    }
    for (const wchar_t* name : {kCollectionTask, kActivationTask}) {
        platform::delete_task(WideToUtf8(name));
    }
    if (const OwnedService service = OpenProduct(DELETE)) {
        ::DeleteService(service.get());
    }
    RemoveWorkFolder();
    Forget(kKept);
}

}  // namespace zorvalis::acceptance
