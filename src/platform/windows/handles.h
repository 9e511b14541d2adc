// What this side holds until a scope's end: one alias for each closing function. An object that is to stay open is
// given up with `release()`.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

namespace platform {

template <auto Close, class Handle>
struct HandleCloser {
    using pointer = Handle;
    void operator()(Handle handle) const { Close(handle); }
};

template <auto Close, class Handle>
using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, HandleCloser<Close, Handle>>;

using OwnedHandle = Owned<::CloseHandle, HANDLE>;
using OwnedKey = Owned<::RegCloseKey, HKEY>;
using OwnedEventSource = Owned<::DeregisterEventSource, HANDLE>;

}  // namespace platform
