#include "passes.h"

#include <windows.h>

#include <tlhelp32.h>

#include <vector>

#include "jobs/task_scheduler_setting.h"
#include "platform/task_scheduler.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "report.h"
#include "service_entry.h"

namespace zorvalis {
namespace {

using platform::OwnedHandle;
using Clock = std::chrono::steady_clock;

constexpr const wchar_t* kTasks[] = {kCollectionTask, kActivationTask};

bool IsAmong(const std::wstring& path, const std::set<std::wstring>& executables) {
    for (const std::wstring& each : executables) {
        if (::CompareStringOrdinal(path.c_str(), -1, each.c_str(), -1, TRUE) == CSTR_EQUAL) {
            return true;
        }
    }
    return false;
}

struct Running {
    DWORD id;
    OwnedHandle process;
};

std::vector<Running> FindRunning(const std::set<std::wstring>& executables) {
    std::vector<Running> found;
    const OwnedHandle all(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W each{};
    each.dwSize = sizeof each;
    if (all.get() == INVALID_HANDLE_VALUE) {
        Fail("the running processes cannot be listed");
    }
    for (bool more = ::Process32FirstW(all.get(), &each); more; more = ::Process32NextW(all.get(), &each)) {
        // A process that does not let itself be asked is one of Windows' protected ones.
        OwnedHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE | PROCESS_TERMINATE, FALSE,
                                          each.th32ProcessID));
        wchar_t path[32768];
        DWORD size = std::size(path);
        if (process != nullptr && ::QueryFullProcessImageNameW(process.get(), 0, path, &size) &&
            IsAmong(path, executables) && ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT) {
            found.push_back({each.th32ProcessID, std::move(process)});
        }
    }
    return found;
}

}  // namespace

std::set<std::wstring> ExecutablesOfTasks() {
    std::set<std::wstring> paths;
    for (const wchar_t* name : kTasks) {
        platform::RegisteredTask task;
        if (platform::find_task(platform::to_utf8(name), 0, task).status >= 0 && !task.path.empty()) {
            paths.insert(ExecutableOf(platform::to_wide(task.path)));
        }
    }
    return paths;
}

void DeleteTasks() {
    for (const wchar_t* name : kTasks) {
        const platform::TaskResult result = platform::delete_task(platform::to_utf8(name));
        if (result.status >= 0) {
            Say("deleted the scheduled task " + platform::to_utf8(name));
        } else if (result.status != platform::kNoSuchTask) {
            Fail("the scheduled task " + platform::to_utf8(name) + " cannot be deleted",
                 HRESULT_FACILITY(result.status) == FACILITY_WIN32 ? HRESULT_CODE(result.status) : result.status);
        }
    }
}

void EndPasses(const std::set<std::wstring>& executables, std::chrono::seconds limit) {
    constexpr DWORD kMillisecondsToDie = 10000;
    const auto deadline = Clock::now() + limit;
    bool told = false;
    std::vector<Running> running;
    while (!(running = FindRunning(executables)).empty() && Clock::now() < deadline) {
        if (!std::exchange(told, true)) {
            Say("waiting for process " + std::to_string(running.front().id) + ", which runs the executable");
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        ::WaitForSingleObject(running.front().process.get(), static_cast<DWORD>(std::max<long long>(left, 0)));
    }
    for (const Running& each : running) {
        const std::string name = "process " + std::to_string(each.id);
        if (!::TerminateProcess(each.process.get(), ERROR_PROCESS_ABORTED) &&
            ::WaitForSingleObject(each.process.get(), 0) == WAIT_TIMEOUT) {
            Fail(name + " runs the executable and cannot be ended");
        }
        if (::WaitForSingleObject(each.process.get(), kMillisecondsToDie) != WAIT_OBJECT_0) {
            Fail(name + " runs the executable and does not end", ERROR_TIMEOUT);
        }
        Say("ended " + name + ", which ran the executable for longer than " + std::to_string(limit.count()) +
            " s. If that fell into the moment in which it wrote a file back, the file's rows are in NAME.cached.temp");
    }
}

}  // namespace zorvalis
