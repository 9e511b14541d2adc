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

// What the system calls, through its stub, on threads of its own; it lives for as long as somebody refers to it.
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
        } catch (...) {  // the call ends, the flow of events goes on
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
    ComPointer<IWbemQualifierSet> qualifiers;  // asked for, and never looked into
    state_.object.GetPropertyQualifierSet(property.c_str(), qualifiers.put());
    OwnedVariant number;  // a byte or a short stays one in its variant
    if (FAILED(::VariantChangeType(&number, &data, 0, VT_I4))) {
        return false;
    }
    value = number.lVal;
    return true;
}

// Released from the last to the first.
struct EventSubscription::State {
    Apartment apartment;
    ComPointer<IWbemObjectSink> stub_sink;
    ComPointer<EventSink> sink;
    ComPointer<IUnknown> stub;
    ComPointer<IUnsecuredApartment> stub_maker;
    ComPointer<IWbemLocator> locator;
    ComPointer<IWbemServices> services;
};

EventSubscription::EventSubscription() : state_(new State) {}

EventSubscription::~EventSubscription() {
    delete state_;
}

EventSubscription::Status EventSubscription::enter() {
    return state_->apartment.enter();
}

EventSubscription::Status EventSubscription::create_locator() {
    return ::CoCreateInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER,
                              IID_PPV_ARGS(state_->locator.put()));
}

EventSubscription::Status EventSubscription::connect(const wchar_t* name_space) {
    return state_->locator->ConnectServer(make_text(name_space).get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                          state_->services.put());
}

EventSubscription::Status EventSubscription::set_blanket() {
    return ::CoSetProxyBlanket(state_->services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                               RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
}

void EventSubscription::create_stub(std::shared_ptr<EventReceiver> receiver) {
    ::CoCreateInstance(__uuidof(UnsecuredApartment), nullptr, CLSCTX_LOCAL_SERVER,
                       IID_PPV_ARGS(state_->stub_maker.put()));
    *state_->sink.put() = new EventSink(std::move(receiver));
    state_->sink->AddRef();
    if (state_->stub_maker.get() != nullptr) {
        state_->stub_maker->CreateObjectStub(state_->sink.get(), state_->stub.put());
    }
    if (state_->stub.get() != nullptr) {
        state_->stub->QueryInterface(IID_PPV_ARGS(state_->stub_sink.put()));
    }
}

// Without a stub there is no sink to give, which the system refuses.
EventSubscription::Status EventSubscription::start(const wchar_t* language, const wchar_t* query) {
    return state_->services->ExecNotificationQueryAsync(make_text(language).get(), make_text(query).get(),
                                                        WBEM_FLAG_SEND_STATUS, nullptr, state_->stub_sink.get());
}

EventSubscription::Status EventSubscription::cancel() {
    return state_->services->CancelAsyncCall(state_->stub_sink.get());
}

}  // namespace platform
