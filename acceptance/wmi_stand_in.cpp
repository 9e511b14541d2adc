#include "wmi_stand_in.h"

#include <windows.h>

#include <wbemcli.h>

#include <wbemprov.h>

#include "platform/windows/com.h"
#include "status_text.h"

namespace zorvalis::acceptance {
namespace {

using platform::ComPointer;
using platform::make_text;

constexpr wchar_t kNamespace[] = L"ROOT\\WMI";
constexpr wchar_t kProvider[] = L"zorv-acceptance";
constexpr wchar_t kClass[] = L"ZorvQelWmiEvent";
constexpr wchar_t kOurBase[] = L"ZorvAcceptanceEvent";  // tells the class from the firmware's

// The identifier of the provider is WMI's own for those that live in another program.
constexpr char kDefinitions[] = R"(
class ZorvAcceptanceEvent : __ExtrinsicEvent {};
class ZorvQelWmiEvent : ZorvAcceptanceEvent
{
    uint32 EventID;
    uint8 Small;
    uint64 Large;
    string Word;
    uint32 Nothing;
};
instance of __Win32Provider
{
    Name = "zorv-acceptance";
    ClsId = "{54D8502C-527D-43f7-A506-A9DA075E229C}";
    HostingModel = "Decoupled:Com";
};
instance of __EventProviderRegistration
{
    Provider = "__Win32Provider.Name=\"zorv-acceptance\"";
    EventQueryList = {"SELECT * FROM ZorvQelWmiEvent"};
};
)";

std::string Failure(const char* call, HRESULT status) {
    return std::string(call) + " fails: " + StatusText(status);
}

HRESULT Connect(IWbemServices** services) {
    ComPointer<IWbemLocator> locator;
    HRESULT status =
        ::CoCreateInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(locator.put()));
    if (SUCCEEDED(status)) {
        status = locator->ConnectServer(make_text(kNamespace).get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                        services);
    }
    if (SUCCEEDED(status)) {
        status = ::CoSetProxyBlanket(*services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                     RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    }
    return status;
}

enum class Owner { nobody, kit, maker };

Owner OwnerOfClass(IWbemServices* services) {
    ComPointer<IWbemClassObject> found;
    if (FAILED(services->GetObject(make_text(kClass).get(), 0, nullptr, found.put(), nullptr))) {
        return Owner::nobody;
    }
    platform::OwnedVariant base;
    found->Get(L"__SUPERCLASS", 0, &base, nullptr, nullptr);
    return base.vt == VT_BSTR && std::wstring_view(base.bstrVal) == kOurBase ? Owner::kit : Owner::maker;
}

// What is not there is passed over.
void RemoveDefinitions(IWbemServices* services) {
    services->DeleteInstance(
        make_text(LR"(__EventProviderRegistration.Provider="__Win32Provider.Name=\"zorv-acceptance\"")").get(), 0,
        nullptr, nullptr);
    services->DeleteInstance(make_text(LR"(__Win32Provider.Name="zorv-acceptance")").get(), 0, nullptr, nullptr);
    if (OwnerOfClass(services) == Owner::kit) {
        services->DeleteClass(make_text(kClass).get(), 0, nullptr, nullptr);
    }
    services->DeleteClass(make_text(kOurBase).get(), 0, nullptr, nullptr);
}

void Define(Findings& findings) {
    ComPointer<IMofCompiler> compiler;
    const HRESULT made =
        ::CoCreateInstance(__uuidof(MofCompiler), nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(compiler.put()));
    if (made == REGDB_E_CLASSNOTREG) {
        findings.Impossible(Failure("making WMI's compiler of classes", made));
    }
    if (FAILED(made)) {
        findings.Fail(Failure("making WMI's compiler of classes", made));
    }
    std::string text = kDefinitions;
    std::wstring place = LR"(\\.\root\WMI)";
    WBEM_COMPILE_STATUS_INFO info = {};
    const HRESULT status = compiler->CompileBuffer(static_cast<LONG>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                                   place.data(), nullptr, nullptr, nullptr, 0, 0, 0, &info);
    if (FAILED(status) || FAILED(info.hRes)) {
        findings.Fail(Failure("defining the class", FAILED(info.hRes) ? info.hRes : status) + ", phase " +
                      std::to_string(info.lPhaseError) + ", line " + std::to_string(info.FirstLine));
    }
}

void Put(IWbemClassObject* event, const wchar_t* name, VARIANT value) {
    event->Put(name, 0, &value, 0);
}

VARIANT Number(VARTYPE type, std::int32_t number) {
    VARIANT value = {};
    value.vt = type;
    if (type == VT_UI1) {
        value.bVal = static_cast<BYTE>(number);
    } else {
        value.lVal = number;
    }
    return value;
}

}  // namespace

void NeedNoClass(Findings& findings) {
    platform::Apartment apartment;
    ComPointer<IWbemServices> services;
    HRESULT status = apartment.enter();
    if (FAILED(status) || FAILED(status = Connect(services.put()))) {
        findings.Fail(Failure("connecting to ROOT\\WMI", status));
    }
    if (OwnerOfClass(services.get()) == Owner::maker) {
        findings.Impossible("this machine has the firmware's own class");
    }
    RemoveDefinitions(services.get());
}

// Released from the last to the first.
struct WmiStandIn::State {
    platform::Apartment apartment;
    ComPointer<IWbemServices> services;
    ComPointer<IWbemDecoupledBasicEventProvider> provider;
    ComPointer<IWbemObjectSink> sink;
    ComPointer<IWbemClassObject> kind;
    bool defined = false;
    bool registered = false;

    ~State() {
        if (registered) {
            provider->UnRegister();
        }
        if (defined) {
            RemoveDefinitions(services.get());
        }
    }
};

WmiStandIn::WmiStandIn(Findings& findings) : state_(new State) {
    const auto need = [&findings](const char* call, HRESULT status) {
        if (FAILED(status)) {
            findings.Fail(Failure(call, status));
        }
    };
    auto& [apartment, services, provider, sink, kind, defined, registered] = *state_;
    need("CoInitializeEx", apartment.enter());
    // What WMI's page about such providers asks for. RPC_E_TOO_LATE when something was called before.
    ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                           nullptr, EOAC_DYNAMIC_CLOAKING, nullptr);
    NeedNoClass(findings);
    need("connecting to ROOT\\WMI", Connect(services.put()));
    defined = true;
    Define(findings);
    need("making a provider", ::CoCreateInstance(__uuidof(WbemDecoupledBasicEventProvider), nullptr,
                                                 CLSCTX_INPROC_SERVER, IID_PPV_ARGS(provider.put())));
    need("registering the provider",
         provider->Register(0, nullptr, nullptr, nullptr, L"root\\WMI", kProvider, nullptr));
    registered = true;
    need("getting the provider's sink", provider->GetSink(0, nullptr, sink.put()));
    need("reading the class", services->GetObject(make_text(kClass).get(), 0, nullptr, kind.put(), nullptr));
    findings.Saw("ROOT\\WMI has a class ZorvQelWmiEvent of the kit's");
}

WmiStandIn::~WmiStandIn() = default;

std::int32_t WmiStandIn::Raise(const std::vector<std::int32_t>& numbers) {
    std::vector<ComPointer<IWbemClassObject>> events(numbers.size());
    std::vector<IWbemClassObject*> pointers;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const HRESULT made = state_->kind->SpawnInstance(0, events[i].put());
        if (FAILED(made)) {
            return made;
        }
        IWbemClassObject* const event = events[i].get();
        Put(event, L"EventID", Number(VT_I4, numbers[i]));  // WMI has its 32 bits without a sign in this type, too
        Put(event, L"Small", Number(VT_UI1, 7));
        Put(event, L"Large", platform::OwnedVariant(L"1099511627776"));  // and its 64 bits as a text
        Put(event, L"Word", platform::OwnedVariant(L"word"));
        pointers.push_back(event);
    }
    return state_->sink->Indicate(static_cast<LONG>(pointers.size()), pointers.data());
}

void WmiStandIn::Remove() {
    platform::Apartment apartment;
    ComPointer<IWbemServices> services;
    if (SUCCEEDED(apartment.enter()) && SUCCEEDED(Connect(services.put()))) {
        RemoveDefinitions(services.get());
    }
}

}  // namespace zorvalis::acceptance
