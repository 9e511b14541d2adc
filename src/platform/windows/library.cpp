// LoadLibrary; `distrust_users` (entry.h) has restricted the folders in which Windows looks.
#include "platform/library.h"

#include <windows.h>

namespace platform {

SharedLibrary::SharedLibrary(const wchar_t* name) : handle_(::LoadLibraryW(name)) {}

SharedLibrary::~SharedLibrary() {
    ::FreeLibrary(static_cast<HMODULE>(handle_));
}

void* SharedLibrary::symbol(const char* name) const {
    if (handle_ == nullptr) {
        return nullptr;  // GetProcAddress would take null for the executable and find the executable's exports
    }
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace platform
