// Makes the COM doubles when the system loads this library for their classes.
#define CINTERFACE
#include <windows.h>

#include <taskschd.h>
#include <wbemcli.h>

#include "com_object.h"

namespace doubles {
namespace {

constexpr struct {
    const CLSID* id;
    const char* name;
    IUnknown* (*make)();
} kClasses[] = {
    {&CLSID_TaskScheduler, "TaskScheduler", make_task_service},
    {&CLSID_WbemLocator, "WbemLocator", make_locator},
    {&CLSID_UnsecuredApartment, "UnsecuredApartment", make_apartment},
};

struct Factory : Object<IClassFactory> {
    std::size_t index = 0;
};

HRESULT create_instance(IClassFactory* self, IUnknown*, const IID& wanted, void** object) {
    const auto& made = kClasses[static_cast<Factory*>(self)->index];
    IUnknown* instance = nullptr;
    HRESULT status = give(&instance, made.make, std::string("CoCreateInstance.") + made.name);
    *object = nullptr;
    if (status == S_OK) {
        status = instance->lpVtbl->QueryInterface(instance, wanted, object);
        instance->lpVtbl->Release(instance);
    }
    return status;
}

}  // namespace
}  // namespace doubles

extern "C" __declspec(dllexport) HRESULT WINAPI DllGetClassObject(REFCLSID id, REFIID wanted, void** object) {
    using namespace doubles;
    *object = nullptr;
    for (std::size_t index = 0; index < sizeof kClasses / sizeof *kClasses; ++index) {
        if (*kClasses[index].id == id) {
            auto* const factory = make<Factory>("IClassFactory", IID_IClassFactory,
                                                [](auto& table) { table.CreateInstance = create_instance; });
            factory->index = index;
            const HRESULT status = query_interface(reinterpret_cast<AnyObject*>(factory), wanted, object);
            release(reinterpret_cast<AnyObject*>(factory));
            return status;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" __declspec(dllexport) HRESULT WINAPI DllCanUnloadNow() {
    return S_FALSE;
}
