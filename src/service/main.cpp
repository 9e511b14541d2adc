// The executable's entry. The service manager starts it without an option, an administrator with -install or -remove,
// the scheduled tasks with -j0 or -j1. Only the first argument counts; one without a dash or slash is no option. The
// exit code is always 0, also after a failure, which is printed or in the event log.
#include <array>
#include <cstdio>
#include <cwctype>

#include "common/root.h"
#include "jobs/task_scheduler_setting.h"
#include "platform/entry.h"
#include "platform/error.h"
#include "service/passes.h"
#include "service/service_install.h"
#include "service/zorvalis_service.h"

namespace zorvalis {
namespace {

bool EqualsIgnoringCase(const wchar_t* a, const wchar_t* b) {
    for (; *a != L'\0' && std::towlower(*a) == std::towlower(*b); ++a, ++b) {
    }
    return *a == L'\0' && *b == L'\0';
}

void Install() {
    constexpr std::uint32_t kAutomaticStart = 2;
    InstallService(kServiceName, kServiceName, kAutomaticStart, L"", nullptr, nullptr);
}

// Deletes the scheduled tasks even when the service could not be removed.
void Remove() {
    UninstallService(kServiceName);
    TaskSchedulerSetting bridge;
    bridge.DeleteTaskSchedulerTriggerTmer(kCollectionTask);
    bridge.DeleteTaskSchedulerTriggerTmer(kActivationTask);
}

void RunService() {
    ZorvalisService service(kServiceName, true, true, false);
    if (!CServiceBase::Run(service)) {
        std::printf("Service failed to run w/err 0x%08lx\n", static_cast<unsigned long>(platform::last_error()));
    }
}

struct Option {
    const wchar_t* word;
    void (*run)();
};

constexpr std::array<Option, 4> kOptions = {{
    {L"install", Install},
    {L"remove", Remove},
    {L"j0", RunJob0},
    {L"j1", RunJob1},
}};

}  // namespace
}  // namespace zorvalis

int program_main(int argc, const wchar_t* const* argv) {
    using namespace zorvalis;
    if (argc < 2 || (argv[1][0] != L'-' && argv[1][0] != L'/')) {
        AtRoot("RunService", RunService);
        return 0;
    }
    for (const Option& option : kOptions) {
        if (EqualsIgnoringCase(argv[1] + 1, option.word)) {
            AtRoot("The command", option.run);
            break;
        }
    }
    return 0;
}
