// The states that the service hands down to its platform when its start, its stop and its end meet. There is no
// manager here, which would take no report after the stop and so hide one.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>

#include "service/service_base.h"
#include "support/machine.h"
#ifdef _WIN32
#include "support/import_hook.h"
#else
#include <sstream>

#include "base/json.h"
#include "platform/machine.h"
#include "platform/stand_in/service_control.h"
#endif

namespace zorvalis {
namespace {

#ifdef _WIN32
class Reports {
public:
    Reports() { states_.clear(); }
    std::string states() const { return states_; }

private:
    static inline std::string states_;
    const ImportHook hook_{"SetServiceStatus", ::SetServiceStatus, [](SERVICE_STATUS_HANDLE, SERVICE_STATUS* status) {
                               states_ += std::to_string(status->dwCurrentState);
                               return TRUE;
                           }};
};
#else
class Reports {
public:
    static std::string states() {
        std::string states;
        std::istringstream log(read_text(platform::machine_folder() + "/" + platform::kRefusedStatusLog));
        for (std::string line; std::getline(log, line);) {
            states += ParseJson(line).at("state").dump();
        }
        return states;
    }

private:
    const TestMachine machine_;
};
#endif

class Meeting : public CServiceBase {
public:
    Meeting() : CServiceBase(L"Zorvalis", true, true, false) {}
    void OnStart(std::uint32_t, wchar_t**) override { start(); }
    void OnStop() override { stop(); }

    std::function<void()> start = [] {}, stop = [] {};
};

const std::function<void()> kFail = [] { throw std::uint32_t{5}; };

TEST(ServiceStatus, IsStoppedAtLastAndRunsOnlyWhereNoStopIsUnderWay) {
    struct Case {
        const char *name, *states;
        std::function<void(Meeting&)> run;
    };
    const Case cases[] = {
        {"a stop within the start", "231",
         [](Meeting& service) {
             service.start = [&] { service.Stop(); };
             service.Start(0, nullptr);
             service.Stop();
             service.Shutdown();
         }},
        {"a start that ends within the stop", "231",
         [](Meeting& service) {
             service.stop = [&] { service.Start(0, nullptr); };
             service.SetServiceStatus(kStartPending);
             service.Stop();
         }},
        {"a start that ends within a stop that fails", "234",
         [](Meeting& service) {
             service.stop = [&] {
                 service.SetServiceStatus(kRunning);
                 kFail();
             };
             service.SetServiceStatus(kStartPending);
             service.Stop();
         }},
        {"a start that fails within the stop", "231",
         [](Meeting& service) {
             service.start = kFail;
             service.stop = [&] { service.Start(0, nullptr); };
             service.SetServiceStatus(kStartPending);
             service.Stop();
         }},
    };
    for (const Case& one : cases) {
        const Reports reports;
        Meeting service;
        one.run(service);
        EXPECT_EQ(reports.states(), one.states) << one.name;
    }
}

// What is reported is what the caller said, and not what another thread has left there meanwhile.
TEST(ServiceStatus, IsNeverLostBetweenThreads) {
    constexpr int kReports = 2000;
    const Reports reports;
    Meeting service;
    const auto report = [&](std::uint32_t state) {
        for (int i = 0; i < kReports; ++i) {
            service.SetServiceStatus(state);
        }
    };
    std::thread starting(report, kRunning);
    report(kPaused);
    std::thread stopping([&] { service.Stop(); });
    starting.join();
    stopping.join();
    service.Start(0, nullptr);
    const std::string states = reports.states();
    EXPECT_EQ(std::count(states.begin(), states.end(), '7'), kReports);
    EXPECT_EQ(states.find('1'), states.size() - 1) << states;
}

}  // namespace
}  // namespace zorvalis
