// The service database and the thread pool of Windows, as Wine has them.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/registry.h"
#include "platform/service_manager.h"
#include "platform/thread_pool.h"
#include "support/import_hook.h"
#include "support/machine.h"

namespace platform {
namespace {

using Calls = std::vector<std::string>;

constexpr auto kRoot = RegistryRoot::local_machine;
constexpr auto kFailed = std::chrono::seconds(20);

Calls calls;  // of one test, by its hooks

template <class... Values>
void note(const char* name, Values... values) {
    std::string call = name;
    char text[20];
    (static_cast<void>(std::snprintf(text, sizeof text, " %llx", static_cast<unsigned long long>(values)),
                       call += text),
     ...);
    calls.push_back(call);
}

// 0 for what succeeded.
std::uint32_t error_of(bool done) {
    return done ? 0 : last_error();
}

TEST(ServiceManager, RegistersAndDeletesInTheServiceDatabase) {
    constexpr wchar_t kName[] = L"ZorvTest";
    const ServiceRegistration registration = {kName,      L"Zorv test", 0x10,   2, 1, L"C:\\No such\\service.exe",
                                              L"RpcSs\0", nullptr,      nullptr};
    ServiceStatus status = {};
    {
        ServiceManager manager;
        ASSERT_TRUE(manager.open(1));
        EXPECT_EQ(error_of(manager.create_service(registration, 4)), 5U) << "only connected";
        EXPECT_EQ(error_of(manager.open_service(kName, 4)), 1060U);
    }
    {
        ServiceManager manager;
        ASSERT_TRUE(manager.open(3));
        ASSERT_EQ(error_of(manager.create_service(registration, 4)), 0U);
        EXPECT_TRUE(manager.query_service(status));
        EXPECT_EQ(error_of(manager.control_service(1, status)), 5U) << "only queried";
        EXPECT_EQ(error_of(manager.delete_service()), 5U);
        EXPECT_EQ(error_of(manager.create_service(registration, 4)), 1073U);
    }
    EXPECT_TRUE(status.type == 0x10 && status.state == 1);
    std::vector<std::wstring> subkeys;
    std::vector<RegistryValue> values;
    list_registry_key(kRoot, std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\") + kName, subkeys, values);
    std::wstring text;
    for (const RegistryValue& value : values) {
        text += value.name == L"PreshutdownTimeout" ? L"" : value.name + L"=" + value.data + L";";
    }
    EXPECT_EQ(text,
              L"DependOnService=5200700063005300730000000000;DisplayName=Zorv test;ErrorControl=1;"
              L"ImagePath=C:\\No such\\service.exe;ObjectName=LocalSystem;Start=2;Type=16;");
    {
        ServiceManager manager;
        ASSERT_TRUE(manager.open(1));
        ASSERT_TRUE(manager.open_service(kName, 0x10024));
        EXPECT_EQ(error_of(manager.control_service(1, status)), 1062U);
        EXPECT_EQ(error_of(manager.delete_service()), 0U);
    }
    ServiceManager manager;
    ASSERT_TRUE(manager.open(3));
    EXPECT_EQ(error_of(manager.create_service(registration, DELETE)), 0U) << "1072 while a handle is open";
    EXPECT_EQ(error_of(manager.delete_service()), 0U);
}

TEST(ThreadPool, RunsBlockingWorkSideBySide) {
    constexpr int kWorks = 8;
    struct Meeting {
        std::atomic<int> absent = kWorks;
        std::promise<void> complete;
        std::shared_future<void> seen = complete.get_future();
    };
    auto& meeting = *new Meeting;  // never freed: callbacks may still be at their end
    for (int i = 0; i < kWorks; ++i) {
        PoolWork* const work = create_pool_work(
            [](void* context) {
                auto& joined = *static_cast<Meeting*>(context);
                const auto seen = joined.seen;
                if (--joined.absent == 0) {
                    joined.complete.set_value();
                }
                seen.wait();
            },
            &meeting);
        ASSERT_NE(work, nullptr);
        submit_pool_work(work);
    }
    ASSERT_EQ(meeting.seen.wait_for(kFailed), std::future_status::ready);
    refuse_pool_items(true);
    EXPECT_EQ(create_pool_work([](void*) {}, nullptr), nullptr);
    EXPECT_EQ(create_pool_timer([](void*) {}, nullptr), nullptr);
    refuse_pool_items(false);
}

TEST(ThreadPool, FiresATimerOnceAfterTheScaledTime) {
    const TestMachine machine;
    static const auto trueSet = IMPORTED(SetThreadpoolTimer);
    calls.clear();
    HOOK(SetThreadpoolTimer, [](PTP_TIMER timer, FILETIME* due, DWORD period, DWORD window) {
        const auto ticks = static_cast<LONGLONG>(ULONGLONG{due->dwHighDateTime} << 32 | due->dwLowDateTime);
        note("set", -ticks, period, window);
        if (-ticks < 1000000) {
            trueSet(timer, due, period, window);
        }
    });
    auto* const fired = new std::promise<void>[3];  // never freed either
    const double factors[] = {1.0, 0.0001, 0.0};
    for (int i = 0; i < 3; ++i) {
        set_clock({0, factors[i]});
        PoolTimer* const timer =
            create_pool_timer([](void* context) { static_cast<std::promise<void>*>(context)->set_value(); }, &fired[i]);
        ASSERT_NE(timer, nullptr);
        start_pool_timer(timer, 120000);
    }
    EXPECT_EQ(calls, (Calls{"set 47868c00 0 0", "set 1d4c0 0 0", "set 0 0 0"}));
    EXPECT_EQ(fired[1].get_future().wait_for(kFailed), std::future_status::ready);
    EXPECT_EQ(fired[2].get_future().wait_for(kFailed), std::future_status::ready);
}

}  // namespace
}  // namespace platform
