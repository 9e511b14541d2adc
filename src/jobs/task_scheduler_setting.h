// The bridge to the system's task scheduler: makes, switches off and deletes the tasks that start this executable with
// a job switch. Each operation is a whole visit of its own; callers are told nothing. Under the job lock, except in
// the administrator's command.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

inline constexpr wchar_t kCollectionTask[] = L"Zorvalis_754F3273-0563-4F20-B12F-826510B07474";
inline constexpr wchar_t kActivationTask[] = L"Zorvalis_6DB16103-CD29-4A19-8B1B-B97E1944BE12";

// When the collection task starts. `kPassInterval` is `kPassSeconds` as the task scheduler writes it.
inline constexpr wchar_t kPassInterval[] = L"PT5M";
inline constexpr std::int64_t kPassSeconds = 300;
inline constexpr int kSpreadMinutes = 60;  // a task put off to tomorrow starts in one of so many after midnight
constexpr std::int64_t SoonStart(std::int64_t now) {
    return now / 60 * 60 + 300;
}

class TaskSchedulerSetting {
public:
    // Makes a task or replaces the one of that name, a disabled one too. It starts in about five minutes, or in the
    // first hour of tomorrow, and then again and again.
    void SetSpecificTimeTriggerTmer(std::wstring taskName, std::wstring repetitionInterval,
                                    std::wstring executionTimeLimit, std::wstring arguments, int startTomorrow);

    // The task stays registered. One that is not there is left at that.
    void disableTask(std::wstring taskName);

    void DeleteTaskSchedulerTriggerTmer(std::wstring taskName);
};

// When a new task first starts, in local time: "2026-11-12T09:08:00".
std::wstring StartBoundary(int startTomorrow);

}  // namespace zorvalis
