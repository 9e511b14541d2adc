// Owners of Windows' handles: one alias for each closing function, which runs at the owner's end. `release()` gives the
// handle up and leaves it open.
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
