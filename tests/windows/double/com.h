// The COM doubles, for the hooks of the library.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <atomic>
#include <string>

namespace doubles {

inline std::atomic<int> heldObjects{0};  // references that nobody has released yet

// Stands for CoCreateInstance, as a step of its name, a point and the class.
HRESULT WINAPI create_instance(REFCLSID id, IUnknown* outer, DWORD context, REFIID wanted, void** object);

IUnknown* make_task_service();
IUnknown* make_locator();
IUnknown* make_apartment();

// Fires one Indicate on a thread of its own, into the subscription of the moment, and waits for its end. Each line is
// one object, its properties with blanks between: "EventID=154 Text=bstr:154 Odd=null Gone=none", a plain number is a
// VT_I4, "none" a property that cannot be had. The result is Indicate's, or RPC_E_DISCONNECTED without a subscription.
HRESULT indicate(const std::string& objects);

// Calls SetStatus in the same way.
HRESULT report_status(LONG flags);

}  // namespace doubles
