// The service's side of Windows. What Wine has is asked for real: the service database, the thread pool, COM as far as
// it goes there. What it takes without a word is looked at through doubles in the import table.
#include <windows.h>

#include <evntprov.h>
#include <gtest/gtest.h>
#include <wbemcli.h>

#include <atomic>
#include <future>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/event_provider.h"
#include "platform/event_subscription.h"
#include "platform/registry.h"
#include "platform/service.h"
#include "platform/service_manager.h"
#include "platform/task_scheduler.h"
#include "platform/thread_pool.h"
#include "platform/windows/com.h"
#include "support/import_hook.h"
#include "support/machine.h"

namespace platform {
namespace {

using Calls = std::vector<std::string>;

constexpr auto kRoot = RegistryRoot::local_machine;
constexpr Guid kGuid = {0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};
constexpr GUID kSystemGuid = {0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};
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

TEST(Service, CarriesMainHandlerAndReportsToTheSystemAndBack) {
    static const auto kHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(0x123456789AB);
    static POWERBROADCAST_SETTING change = {kSystemGuid, 4, {2}};
    static wchar_t* arguments[] = {const_cast<wchar_t*>(L"Zorvalis"), const_cast<wchar_t*>(L"-x")};
    static int context = 0;
    calls.clear();
    HOOK(StartServiceCtrlDispatcherW, [](const SERVICE_TABLE_ENTRYW* table) -> BOOL {
        EXPECT_STREQ(table[0].lpServiceName, L"Zorvalis");
        EXPECT_TRUE(table[1].lpServiceName == nullptr && table[1].lpServiceProc == nullptr);
        table[0].lpServiceProc(2, arguments);
        return TRUE;
    });
    HOOK(RegisterServiceCtrlHandlerExW,
         [](const wchar_t* name, LPHANDLER_FUNCTION_EX handler, void* given) -> SERVICE_STATUS_HANDLE {
             EXPECT_STREQ(name, L"Zorvalis");
             note("answer", handler(13, 0x8013, &change, given));
             return kHandle;
         });
    HOOK(SetServiceStatus, [](SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) -> BOOL {
        EXPECT_EQ(handle, kHandle);
        note("status", status->dwServiceType, status->dwCurrentState, status->dwControlsAccepted,
             status->dwWin32ExitCode, status->dwServiceSpecificExitCode, status->dwCheckPoint, status->dwWaitHint);
        return TRUE;
    });
    HOOK(RegisterPowerSettingNotification, [](HANDLE recipient, const GUID* setting, DWORD flags) -> HPOWERNOTIFY {
        EXPECT_TRUE(recipient == kHandle && *setting == kSystemGuid);
        note("register", flags);
        return reinterpret_cast<HPOWERNOTIFY>(0x77);
    });
    HOOK(UnregisterPowerSettingNotification, [](HPOWERNOTIFY registration) -> BOOL {
        note("unregister", reinterpret_cast<ULONGLONG>(registration));
        return FALSE;
    });
    const auto handler = [](std::uint32_t control, std::uint32_t type, void* data, void* given) -> std::uint32_t {
        const auto& setting = *static_cast<const PowerSettingChange*>(data);
        EXPECT_EQ(given, &context);
        EXPECT_EQ(std::memcmp(&setting.setting, &kSystemGuid, sizeof(GUID)), 0);
        note("control", control, type, setting.size, setting.data & 0xFF);
        return 120;
    };
    static const ServiceHandler serviceHandler = handler;
    EXPECT_TRUE(run_service(L"Zorvalis", [](std::uint32_t argc, wchar_t** argv) {
        EXPECT_TRUE(argc == 2 && argv == arguments);
        const ServiceStatusHandle handle = register_service_handler(L"Zorvalis", serviceHandler, &context);
        EXPECT_TRUE(set_service_status(handle, {16, 2, 0x1C1, 3, 4, 5, 6}));
        EXPECT_EQ(register_power_setting(handle, kGuid), 0x77);
        EXPECT_FALSE(unregister_power_setting(handle));
    }));
    EXPECT_EQ(calls, (Calls{"control d 8013 4 2", "answer 78", "status 10 2 1c1 3 4 5 6", "register 1",
                            "unregister 123456789ab"}));
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

TEST(EventProvider, WritesTextsAtTheirLevel) {
    static ULONG answer;
    answer = 0;
    calls.clear();
    HOOK(EventRegister, [](const GUID* provider, PENABLECALLBACK callback, void* context, REGHANDLE* handle) -> ULONG {
        EXPECT_TRUE(*provider == kSystemGuid && callback == nullptr && context == nullptr);
        *handle = 0x123456789AB;
        return answer;
    });
    HOOK(EventWriteString, [](REGHANDLE handle, UCHAR level, ULONGLONG keyword, const wchar_t* text) -> ULONG {
        EXPECT_STREQ(text, L"Service trying to start.");
        note("write", handle, level, keyword);
        return 0;
    });
    HOOK(EventUnregister, [](REGHANDLE handle) -> ULONG {
        note("unregister", handle);
        return 0;
    });
    std::uint64_t registration = 0;
    EXPECT_EQ(register_event_provider(kGuid, registration), 0U);
    write_event_text(registration, 2, 0x8000000000000000, L"Service trying to start.");
    unregister_event_provider(registration);
    EXPECT_EQ(calls, (Calls{"write 123456789ab 2 8000000000000000", "unregister 123456789ab"}));
    answer = 8;
    registration = 0;
    EXPECT_EQ(register_event_provider(kGuid, registration), 8U);
    EXPECT_EQ(registration, 0U);
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

const auto trueInitialize = IMPORTED(CoInitializeEx);
const auto trueUninitialize = IMPORTED(CoUninitialize);
const auto trueCreateInstance = IMPORTED(CoCreateInstance);

HRESULT entering = S_OK;

HRESULT WINAPI initialize(void* reserved, DWORD apartment) {
    note("enter", apartment);
    return FAILED(entering) ? entering : trueInitialize(reserved, apartment);
}

void WINAPI uninitialize() {
    note("leave");
    trueUninitialize();
}

using Statuses = std::vector<std::int32_t>;  // of calls in their order

constexpr auto kNoTask = static_cast<std::int32_t>(0x80070002);
constexpr auto kNoNamespace = static_cast<std::int32_t>(WBEM_E_INVALID_NAMESPACE);
constexpr auto kBadArgument = static_cast<std::int32_t>(WBEM_E_INVALID_PARAMETER);

TEST(TaskScheduler, TakesEachStepThatWineHas) {
    constexpr std::int32_t kNotHere = E_NOTIMPL;  // what Wine lacks
    constexpr wchar_t kName[] = L"ZorvTest";
    calls.clear();
    HOOK(CoInitializeEx, initialize);
    HOOK(CoUninitialize, uninitialize);
    entering = RPC_E_CHANGED_MODE;
    EXPECT_EQ(TaskScheduler().enter(), RPC_E_CHANGED_MODE);
    entering = S_OK;
    {
        TaskScheduler visit;
        std::int32_t count = 1;
        EXPECT_EQ((Statuses{visit.enter(), visit.create_service(), visit.connect(), visit.get_root_folder()}),
                  Statuses(4));
        EXPECT_EQ((Statuses{visit.new_task(), visit.get_registration_info(), visit.put_author(L"An author"),
                            visit.get_principal(), visit.put_run_level(1)}),
                  (Statuses{0, 0, 0, 0, kNotHere}));
        EXPECT_EQ((Statuses{visit.get_settings(), visit.put_start_when_available(true),
                            visit.put_execution_time_limit(L"PT14M"), visit.put_disallow_start_if_on_batteries(false),
                            visit.get_triggers(), visit.create_time_trigger()}),
                  (Statuses{0, 0, 0, 0, 0, kNotHere}));
        EXPECT_EQ((Statuses{visit.get_actions(), visit.create_exec_action(), visit.query_exec_action(),
                            visit.put_action_path(L"C:\\service.exe"), visit.put_action_arguments(L"-j0"),
                            visit.register_task(kName, 6, L"SYSTEM", 4, L"")}),
                  Statuses(6));
        EXPECT_EQ((Statuses{visit.get_tasks(), visit.get_task_count(count), visit.get_task(1)}),
                  (Statuses{0, kNotHere, kNotHere}));
        const std::string task = read_text("C:\\windows\\system32\\tasks\\ZorvTest");
        for (const char* part : {"<Author>An author</Author>", "<StartWhenAvailable>true</StartWhenAvailable>",
                                 "<ExecutionTimeLimit>PT14M</ExecutionTimeLimit>",
                                 "<DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>"}) {
            EXPECT_NE(task.find(part), std::string::npos) << part << " in " << task;
        }
        EXPECT_EQ((Statuses{visit.delete_task(kName), visit.delete_task(kName)}), (Statuses{0, kNoTask}));
    }
    EXPECT_EQ(calls, (Calls{"enter 0", "enter 0", "leave"}));
}

struct Receiver : EventReceiver {
    void Indicate(const EventObject& object) override {
        std::vector<std::wstring> names;
        std::int32_t number = 0;
        EXPECT_TRUE(object.property_names(names));
        for (const std::wstring& name : names) {
            if (object.integer(name, number)) {
                text += name + L"=" + std::to_wstring(number) + L";";
            }
        }
        EXPECT_FALSE(object.integer(L"EventID", number));
        throw std::runtime_error("an event that nobody catches");
    }
    void SetStatus(std::int32_t flags) override {
        note("status", flags);
        throw 5;
    }
    std::wstring text;
};

// Stands for the system's stubs, which Wine does not have: the sink is its own stub.
struct StubMaker final : IUnsecuredApartment {
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override {
        note("release stub maker");
        return 1;
    }
    STDMETHODIMP CreateObjectStub(IUnknown* object, IUnknown** stub) override {
        object->AddRef();
        *stub = object;
        return object->QueryInterface(__uuidof(IWbemObjectSink), Received(sink));
    }
    ComPointer<IWbemObjectSink> sink;
};
StubMaker stubMaker;

// One object of a class that the machine answers for.
ComPointer<IWbemClassObject> query_object(const wchar_t* query) {
    ComPointer<IWbemLocator> locator;
    ComPointer<IWbemServices> services;
    ComPointer<IEnumWbemClassObject> found;
    ComPointer<IWbemClassObject> object;
    ULONG count = 0;
    ::CoCreateInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER, __uuidof(IWbemLocator), Received(locator));
    locator->ConnectServer(make_text(L"ROOT\\CIMV2").get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                           Received(services));
    services->ExecQuery(make_text(L"WQL").get(), make_text(query).get(), 48, nullptr, Received(found));
    found->Next(5000, 1, Received(object), &count);
    return object;
}

TEST(EventSubscription, HandsEventsAndStatusesToTheReceiver) {
    const auto receiver = std::make_shared<Receiver>();
    calls.clear();
    HOOK(CoInitializeEx, initialize);
    HOOK(CoUninitialize, uninitialize);
    HOOK(CoCreateInstance, [](const CLSID& wanted, IUnknown* outer, DWORD context, REFIID iid, void** object) {
        note("create", context);
        if (wanted != __uuidof(UnsecuredApartment)) {
            return trueCreateInstance(wanted, outer, context, iid, object);
        }
        *object = &stubMaker;
        return S_OK;
    });
    HOOK(CoSetProxyBlanket,
         [](IUnknown* proxy, DWORD authentication, DWORD authorization, wchar_t* server, DWORD level,
            DWORD impersonation, void* identity, DWORD capabilities) -> HRESULT {
             EXPECT_TRUE(proxy != nullptr && server == nullptr && identity == nullptr);
             note("blanket", authentication, authorization, level, impersonation, capabilities);
             return S_OK;
         });
    {
        EventSubscription subscription;
        EXPECT_EQ((Statuses{subscription.enter(), subscription.create_locator(), subscription.connect(L"ROOT\\Nowhere"),
                            subscription.connect(L"ROOT\\WMI"), subscription.set_blanket()}),
                  (Statuses{0, 0, kNoNamespace, 0, 0}));
        subscription.create_stub(receiver);
        EXPECT_EQ((Statuses{subscription.start(L"WQL", L"SELECT * FROM Some"), subscription.cancel()}), Statuses(2));
        const auto object = query_object(L"SELECT * FROM Win32_Processor");
        IWbemClassObject* objects[] = {object.get()};
        EXPECT_EQ(stubMaker.sink->Indicate(1, objects), S_OK);
        EXPECT_NE(receiver->text.find(L";Architecture=9;"), std::wstring::npos) << "a number of 16 bits";
        EXPECT_NE(receiver->text.find(L"NumberOfCores="), std::wstring::npos) << "a number of 32 bits";
        EXPECT_EQ(receiver->text.find(L"Manufacturer="), std::wstring::npos) << "a text";
    }
    EXPECT_EQ(calls, (Calls{"enter 0", "create 1", "blanket a 0 3 3 0", "create 4", "status 0", "create 1",
                            "release stub maker", "leave"}));
    EXPECT_EQ(receiver.use_count(), 2) << "the stub maker's reference";
    stubMaker.sink.reset();
    EXPECT_EQ(receiver.use_count(), 1);
}

TEST(EventSubscription, FailsAsAQueryWhereThereIsNoStub) {
    EventSubscription subscription;
    EXPECT_EQ((Statuses{subscription.enter(), subscription.create_locator(), subscription.connect(L"ROOT\\WMI"),
                        subscription.set_blanket()}),
              Statuses(4));
    subscription.create_stub(std::make_shared<Receiver>());
    EXPECT_EQ((Statuses{subscription.start(L"WQL", L"SELECT * FROM Some"), subscription.cancel()}),
              (Statuses{kBadArgument, kBadArgument}));
}

}  // namespace
}  // namespace platform
