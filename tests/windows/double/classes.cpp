// Makes the COM doubles in the place of the system's classes.
#define CINTERFACE
#include <windows.h>

#include <taskschd.h>
#include <wbemcli.h>

#include "com_object.h"

namespace doubles {

HRESULT WINAPI create_instance(REFCLSID id, IUnknown*, DWORD context, REFIID wanted, void** object) {
    constexpr struct {
        const CLSID* id;
        IUnknown* (*make)();
    } kClasses[] = {
        {&CLSID_TaskScheduler, make_task_service},
        {&CLSID_WbemLocator, make_locator},
        {&CLSID_UnsecuredApartment, make_apartment},
    };
    *object = nullptr;
    for (const auto& known : kClasses) {
        if (*known.id == id) {
            IUnknown* instance = nullptr;
            HRESULT status = give(&instance, known.make, "CoCreateInstance." + text(id), shown(context));
            if (status == S_OK) {
                status = instance->lpVtbl->QueryInterface(instance, wanted, object);
                instance->lpVtbl->Release(instance);
            }
            return status;
        }
    }
    return REGDB_E_CLASSNOTREG;
}

}  // namespace doubles
