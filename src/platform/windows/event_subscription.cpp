// An asynchronous WMI notification query. WMI calls the receiver through a stub of the unsecured apartment, so that it
// needs no right to call into this process.
#include "platform/event_subscription.h"

#include <windows.h>

#include <wbemcli.h>

#include <atomic>
#include <utility>

#include "platform/windows/com.h"

namespace platform {

struct EventObject::State {
    IWbemClassObject& object;
};

namespace {

using OwnedArray = Owned<::SafeArrayDestroy, SAFEARRAY*>;

// What WMI calls, on threads of its own. COM counts its references, so it may outlive the subscription.
class EventSink final : public IWbemObjectSink {
public:
    explicit EventSink(std::shared_ptr<EventReceiver> receiver) : receiver_(std::move(receiver)) {}

    STDMETHODIMP QueryInterface(REFIID wanted, void** object) override {
        const bool known = wanted == __uuidof(IUnknown) || wanted == __uuidof(IWbemObjectSink);
        *object = known ? static_cast<IWbemObjectSink*>(this) : nullptr;
        if (!known) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }

    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    STDMETHODIMP Indicate(LONG count, IWbemClassObject** objects) override {
        try {
            for (LONG i = 0; i < count; ++i) {
                EventObject::State state = {*objects[i]};
                receiver_->Indicate(EventObject(state));
            }
        } catch (...) {  // WMI would not know what to do with it; the next event still comes
        }
        return WBEM_S_NO_ERROR;
    }

    STDMETHODIMP SetStatus(LONG flags, HRESULT, BSTR, IWbemClassObject*) override {
        try {
            receiver_->SetStatus(flags);
        } catch (...) {
        }
        return WBEM_S_NO_ERROR;
    }

private:
    std::atomic<ULONG> references_{0};
    const std::shared_ptr<EventReceiver> receiver_;
};

}  // namespace

bool EventObject::property_names(std::vector<std::wstring>& names) const {
    SAFEARRAY* listed = nullptr;
    const HRESULT status =
        state_.object.GetNames(nullptr, WBEM_FLAG_ALWAYS | WBEM_FLAG_NONSYSTEM_ONLY, nullptr, &listed);
    const OwnedArray array(listed);
    LONG first = 0;
    LONG last = 0;
    if (FAILED(status) || listed == nullptr || FAILED(::SafeArrayGetLBound(listed, 1, &first)) ||
        FAILED(::SafeArrayGetUBound(listed, 1, &last))) {
        return false;
    }
    names.clear();
    for (LONG i = first; i <= last; ++i) {
        BSTR text = nullptr;
        if (SUCCEEDED(::SafeArrayGetElement(listed, &i, &text))) {
            const OwnedText owned(text);
            names.emplace_back(text, ::SysStringLen(text));
        }
    }
    return true;
}

bool EventObject::integer(const std::wstring& property, std::int32_t& value) const {
    OwnedVariant data;
    if (FAILED(state_.object.Get(property.c_str(), 0, &data, nullptr, nullptr))) {
        return false;
    }
    ComPointer<IWbemQualifierSet> qualifiers;  // Kept: fetched, and not used
    state_.object.GetPropertyQualifierSet(property.c_str(), qualifiers.put());
    OwnedVariant number;  // WMI gives smaller integers in their own variant type
    if (FAILED(::VariantChangeType(&number, &data, 0, VT_I4))) {
        return false;
    }
    value = number.lVal;
    return true;
}

// Members are released from the last to the first; COM is left at the very end.
struct EventSubscription::State {
    Apartment apartment;
    ComPointer<IWbemObjectSink> stub_sink;
    ComPointer<EventSink> sink;
    ComPointer<IUnknown> stub;
    ComPointer<IUnsecuredApartment> stub_maker;
    ComPointer<IWbemLocator> locator;
    ComPointer<IWbemServices> services;

    // Null when a call fails: the start then gets a null sink, and its refusal is the failure that the core sees.
    IWbemObjectSink* make_stub(std::shared_ptr<EventReceiver> receiver) {
        ::CoCreateInstance(__uuidof(UnsecuredApartment), nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(stub_maker.put()));
        *sink.put() = new EventSink(std::move(receiver));
        sink->AddRef();
        if (stub_maker.get() != nullptr) {
            stub_maker->CreateObjectStub(sink.get(), stub.put());
        }
        if (stub.get() != nullptr) {
            stub->QueryInterface(IID_PPV_ARGS(stub_sink.put()));
        }
        return stub_sink.get();
    }
};

EventSubscription::EventSubscription(bool enter_com, const wchar_t* name_space, const wchar_t* query,
                                     std::shared_ptr<EventReceiver> receiver)
    : state_(new State) {
    const auto did = [this](EventStep done, HRESULT result) {
        step = done;
        status = result;
        return SUCCEEDED(result);
    };
    auto& [apartment, stub_sink, sink, stub, stub_maker, locator, services] = *state_;
    if ((!enter_com || did(EventStep::enter, apartment.enter())) &&
        did(EventStep::create_locator,
            ::CoCreateInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(locator.put()))) &&
        did(EventStep::connect, locator->ConnectServer(make_text(name_space).get(), nullptr, nullptr, nullptr, 0,
                                                       nullptr, nullptr, services.put())) &&
        did(EventStep::set_blanket,
            ::CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE))) {
        IWbemObjectSink* const target = state_->make_stub(std::move(receiver));
        did(EventStep::start, services->ExecNotificationQueryAsync(make_text(L"WQL").get(), make_text(query).get(),
                                                                   WBEM_FLAG_SEND_STATUS, nullptr, target));
    }
}

EventSubscription::~EventSubscription() {
    // Only a subscription that has started is cancelled.
    if (status >= 0) {
        state_->services->CancelAsyncCall(state_->stub_sink.get());
    }
}

}  // namespace platform
