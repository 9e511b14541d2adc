// The double of WMI: locator, services with their proxy's security, unsecured apartment, and events that come on a
// thread of their own when the test says so.
#define CINTERFACE
#include <windows.h>

#include <oleauto.h>
#include <wbemcli.h>

#include <mutex>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "com_object.h"

namespace doubles {
namespace {

std::mutex mutex;
IWbemObjectSink* subscription = nullptr;  // one process has one; under the mutex

std::wstring widen(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

struct EventObject : Object<IWbemClassObject> {
    std::vector<std::pair<std::wstring, std::string>> properties;
};

HRESULT get_names(IWbemClassObject* self, const wchar_t* qualifier, LONG flags, VARIANT*, SAFEARRAY** names) {
    *names = nullptr;
    const HRESULT status = step("IWbemClassObject.GetNames", shown(qualifier) + number(flags, " 0x%llx"));
    if (status != S_OK) {
        return status;
    }
    const auto& properties = static_cast<EventObject*>(self)->properties;
    SAFEARRAYBOUND bound = {static_cast<ULONG>(properties.size()), 3};  // an array that begins elsewhere than at 0
    *names = ::SafeArrayCreate(VT_BSTR, 1, &bound);
    for (LONG index = bound.lLbound; const auto& [name, value] : properties) {
        const BSTR copy = ::SysAllocString(name.c_str());
        ::SafeArrayPutElement(*names, &index, copy);
        ::SysFreeString(copy);
        ++index;
    }
    return S_OK;
}

HRESULT get(IWbemClassObject* self, const wchar_t* name, LONG flags, VARIANT* value, CIMTYPE*, LONG*) {
    const HRESULT status = step("IWbemClassObject.Get", shown(name) + shown(flags));
    if (status != S_OK) {
        return status;
    }
    for (const auto& [property, content] : static_cast<EventObject*>(self)->properties) {
        if (property != name || content == "none") {
            continue;
        }
        if (content.starts_with("bstr:")) {
            value->vt = VT_BSTR;
            value->bstrVal = ::SysAllocString(widen(content.substr(5)).c_str());
        } else if (content == "null") {
            value->vt = VT_NULL;
        } else {
            value->vt = VT_I4;
            value->lVal = std::stoi(content);
        }
        return S_OK;
    }
    return WBEM_E_NOT_FOUND;
}

auto* make_qualifier_set() {
    return make<Object<IWbemQualifierSet>>("IWbemQualifierSet", IID_IWbemQualifierSet, [](auto&) {});
}

IWbemClassObject* make_event_object(const std::string& line) {
    auto* const object = make<EventObject>("IWbemClassObject", IID_IWbemClassObject, [](auto& table) {
        table.GetNames = get_names;
        table.Get = get;
        RECORD(GetPropertyQualifierSet, make_qualifier_set);
    });
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        const std::size_t equals = word.find('=');
        object->properties.emplace_back(widen(word.substr(0, equals)), word.substr(equals + 1));
    }
    return object;
}

// Stands between the services and the sink that it was made for.
struct Stub : Object<IWbemObjectSink> {
    IWbemObjectSink* sink = nullptr;
    ~Stub() { sink->lpVtbl->Release(sink); }
};

IWbemObjectSink* sink_of(IWbemObjectSink* self) {
    return static_cast<Stub*>(self)->sink;
}

IUnknown* make_stub(IUnknown* object) {
    const auto fill = [](auto& table) {
        table.Indicate = [](IWbemObjectSink* self, LONG count, IWbemClassObject** objects) {
            return sink_of(self)->lpVtbl->Indicate(sink_of(self), count, objects);
        };
        table.SetStatus = [](IWbemObjectSink* self, LONG flags, HRESULT result, BSTR words, IWbemClassObject* details) {
            return sink_of(self)->lpVtbl->SetStatus(sink_of(self), flags, result, words, details);
        };
    };
    auto* const stub = make<Stub>("stub", IID_IUnknown, fill, &IID_IWbemObjectSink);
    object->lpVtbl->QueryInterface(object, IID_IWbemObjectSink, reinterpret_cast<void**>(&stub->sink));
    return reinterpret_cast<IUnknown*>(stub);
}

HRESULT exec_notification_query(IWbemServices*, const BSTR language, const BSTR query, LONG flags,
                                IWbemContext* context, IWbemObjectSink* sink) {
    const HRESULT status = step("IWbemServices.ExecNotificationQueryAsync",
                                shown(language) + shown(query) + shown(flags) + shown(context));
    if (status != S_OK || sink == nullptr) {
        return status != S_OK ? status : static_cast<HRESULT>(WBEM_E_INVALID_PARAMETER);
    }
    const std::lock_guard lock(mutex);
    sink->lpVtbl->AddRef(sink);
    subscription = sink;
    return S_OK;
}

HRESULT cancel_async_call(IWbemServices*, IWbemObjectSink* sink) {
    const HRESULT status = step("IWbemServices.CancelAsyncCall");
    {
        const std::lock_guard lock(mutex);
        if (status != S_OK || sink == nullptr || sink != subscription) {
            return status != S_OK ? status : static_cast<HRESULT>(WBEM_E_NOT_FOUND);
        }
        subscription = nullptr;
    }
    sink->lpVtbl->SetStatus(sink, WBEM_STATUS_COMPLETE, WBEM_E_CALL_CANCELLED, nullptr, nullptr);
    sink->lpVtbl->Release(sink);
    return S_OK;
}

IUnknown* make_security() {
    return reinterpret_cast<IUnknown*>(
        make<Object<IClientSecurity>>("IClientSecurity", IID_IClientSecurity, [](auto& table) { RECORD(SetBlanket); }));
}

auto* make_services() {
    const auto fill = [](auto& table) {
        table.ExecNotificationQueryAsync = exec_notification_query;
        table.CancelAsyncCall = cancel_async_call;
    };
    auto* const services = make<Object<IWbemServices>>("IWbemServices", IID_IWbemServices, fill, &IID_IClientSecurity);
    services->further_maker = make_security;
    return services;
}

template <class Call>
HRESULT call_sink(Call call) {
    IWbemObjectSink* sink = nullptr;
    {
        const std::lock_guard lock(mutex);
        sink = subscription;
        if (sink == nullptr) {
            return RPC_E_DISCONNECTED;
        }
        sink->lpVtbl->AddRef(sink);
    }
    HRESULT status = E_FAIL;
    std::thread([&] { status = call(sink); }).join();
    sink->lpVtbl->Release(sink);
    return status;
}

}  // namespace

IUnknown* make_locator() {
    return reinterpret_cast<IUnknown*>(make<Object<IWbemLocator>>(
        "IWbemLocator", IID_IWbemLocator, [](auto& table) { RECORD(ConnectServer, make_services); }));
}

IUnknown* make_apartment() {
    const auto fill = [](auto& table) {
        table.CreateObjectStub = [](auto*, IUnknown* object, IUnknown** stub) {
            return give(
                stub, [object] { return make_stub(object); }, "IUnsecuredApartment.CreateObjectStub", "");
        };
    };
    return reinterpret_cast<IUnknown*>(
        make<Object<IUnsecuredApartment>>("IUnsecuredApartment", IID_IUnsecuredApartment, fill));
}

HRESULT indicate(const std::string& objects) {
    std::vector<IWbemClassObject*> made;
    std::istringstream lines(objects);
    for (std::string line; std::getline(lines, line);) {
        made.push_back(make_event_object(line));
    }
    const HRESULT status = call_sink([&made](IWbemObjectSink* sink) {
        return sink->lpVtbl->Indicate(sink, static_cast<LONG>(made.size()), made.data());
    });
    for (IWbemClassObject* object : made) {
        object->lpVtbl->Release(object);
    }
    return status;
}

HRESULT report_status(LONG flags) {
    return call_sink(
        [flags](IWbemObjectSink* sink) { return sink->lpVtbl->SetStatus(sink, flags, S_OK, nullptr, nullptr); });
}

}  // namespace doubles
