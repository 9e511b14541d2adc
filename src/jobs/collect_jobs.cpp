// The collection jobs of JobManager: from an occasion to a mask of what is to be done, and through the collectors.
#include <array>
#include <string_view>

#include "base/number.h"
#include "base/text.h"
#include "collection/collectors.h"
#include "common/log.h"
#include "common/registry.h"
#include "jobs/job_manager.h"
#include "jobs/product_activation.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"

namespace zorvalis {
namespace {

// In the order of the setting file's job keys, the timed kinds first. Most events also take a thermal and a battery
// sample.
struct Kind {
    std::uint32_t mask;
    const char* words;
};

constexpr std::array<Kind, kJobWords> kKinds = {{
    {CJ_THERMAL, "BigdataCheck - CJ_THERMAL"},
    {CJ_BATTERYPOWER, "BigdataCheck - CJ_BATTERYPOWER"},
    {CJ_SYSTEMINFO, "BigdataCheck - CJ_SYSTEMINFO"},
    {CJ_UPLOAD, "BigdataCheck - CJ_UPLOAD"},
    {CJ_POWERONOFF | CJ_THERMAL | CJ_BATTERYPOWER, "BigdataCheck - CJ_POWERONOFF"},
    {CJ_SUSPENDRESUME | CJ_THERMAL | CJ_BATTERYPOWER, "BigdataCheck - CJ_SUSPENDRESUME"},
    {CJ_ACDC | CJ_THERMAL | CJ_BATTERYPOWER, "BigdataCheck - CJ_ACDC"},
    {CJ_LIDOPENCLOSE | CJ_THERMAL | CJ_BATTERYPOWER, "BigdataCheck - CJ_LIDOPENCLOSE"},
    {CJ_QUIETFAN, "BigdataCheck - CJ_QUIETFAN"},
    {CJ_BATTERYHEALTH, "BigdataCheck - CJ_BATTERYHEALTH"},
    {CJ_WMIEVENT | CJ_THERMAL | CJ_BATTERYPOWER, "BigdataCheck - CJ_WMIEVENT"},
}};

constexpr std::int32_t kThermalKind = 0;
constexpr std::int32_t kBatteryKind = 1;
constexpr std::int32_t kSystemInfoKind = 2;

// All four are asked every time: two of them have effects on the registry.
bool MayCollect() {
    const bool on = isMainSwitchEnable();
    const bool ready = isReadyToDoJobByManufacturingDate();
    const bool over = isOverTotalCollectTime();
    const bool today = isSpecificDojobDay();
    return on && ready && today && !over;
}

}  // namespace

void JobManager::DoCollectJob(std::wstring action, std::uint32_t trigger, bool timed, std::int64_t now) {
    if (!JobLock().wait(60000)) {
        return;
    }
    try {
        Collect(action, trigger, timed, now);
    } catch (...) {
        ReportServiceEvent(L"DoCJob Exception", kWarning);
    }
    JobLock().release();
}

void JobManager::Collect(const std::wstring& action, std::uint32_t trigger, bool timed, std::int64_t now) {
    LogMessageW(L"DoCollectJob - action : " + action + L", parameter : " + std::to_wstring(trigger));
    if (now == 0) {
        now = platform::now_seconds();
    }
    const std::string timeText = std::to_string(now);
    const std::uint32_t funcMask = BigdataCheck(action, timed, now);
    LogMessage("DoCollectJob - BigdataCheck funcMask : " + std::to_string(funcMask & 0xFFFF));

    const auto triggerOf = [&](std::int32_t kind) {
        if (timed) {
            trigger = triggerCodeOf(kind);
        }
        return static_cast<std::int32_t>(trigger);
    };
    collectBatteryPowerData(timeText, triggerOf(kBatteryKind), funcMask);
    collectThermalData(timeText, triggerOf(kThermalKind), funcMask);
    collectSystemInfoData(timeText, triggerOf(kSystemInfoKind), funcMask);
    // A timed pass leaves the number of "systeminfo" here.
    collectUserBehaviorData(timeText, static_cast<std::int32_t>(trigger), funcMask);
    DoUploadJob(funcMask);
}

std::uint32_t JobManager::BigdataCheck(std::wstring action, bool timed, std::int64_t now) {
    ZorvWinIoDll zorvWinIoDll;
    const std::wstring enclosure = ChassisText(zorvWinIoDll);
    LogMessageW(L"Enclosure Type = " + enclosure);
    if (!IsCollectingChassis(enclosure)) {
        return 0;
    }
    if (!activation::IsDeviceClassAllowed()) {
        return 0;
    }
    if (!MayCollect()) {
        return 0;
    }
    const std::shared_ptr<const Settings> settings = CurrentSettings();
    std::uint32_t funcMask = 0;
    for (std::size_t index = 0; index < kKinds.size(); ++index) {
        const Kind& kind = kKinds[index];
        const bool isTimedKind = index < kTimedKinds;
        if (isTimedKind != timed) {
            continue;
        }
        // An event kind is switched on by its own word.
        const bool toDo = isTimedKind ? IsDue(index, *settings, now)
                                      : settings->jobValues[index] == kJobWord[index] && action == kJobWord[index];
        if (toDo) {
            funcMask |= kind.mask;
            LogMessage(kind.words);
        }
    }
    return funcMask;
}

bool JobManager::IsDue(std::size_t kind, const Settings& settings, std::int64_t now) {
    const auto period = intervalSeconds.find(NarrowBytes(settings.jobValues[kind]));
    return period != intervalSeconds.end() && checkRegTimer(kTimerNames[kind].value, now, period->second);
}

std::uint32_t JobManager::triggerCodeOf(std::int32_t kindIndex) const {
    const auto code = triggerCodes.find(NarrowBytes(CurrentSettings()->jobValues[kindIndex]));
    return code != triggerCodes.end() ? code->second : 0;
}

bool JobManager::checkRegTimer(std::wstring name, std::int64_t now, std::int32_t interval) {
    LogMessage("checkRegTimer start");
    const std::wstring stamp = std::to_wstring(WholeMinute(now));
    const std::wstring stored = ReadRegString(kLocalMachine, kProductKey, name);
    if (!TimerAt(stored, now, interval).IsDue()) {
        return false;
    }
    // These two start anew once the outcome of their work is known.
    if (name == L"upload" || name == L"getSettingFile") {
        return true;
    }
    return WriteRegString(kLocalMachine, kProductKey, name, stamp);
}

void JobManager::updateRegTimer(std::int32_t retry, std::wstring name, std::int32_t delaySeconds) {
    const std::int64_t now = platform::now_seconds();
    const std::int64_t time = retry == 0
                                  ? WholeMinute(now)
                                  : PostponedTimer(ReadRegString(kLocalMachine, kProductKey, name), now, delaySeconds);
    WriteRegString(kLocalMachine, kProductKey, name, std::to_wstring(time));
}

}  // namespace zorvalis
