// A library of the Linux host that is loaded when it is first needed and stays loaded. It is not linked, because the
// start of such a library costs more than a whole sample.
#pragma once

#include <dlfcn.h>

namespace platform {

class LateLibrary {
public:
    explicit LateLibrary(const char* soname) : handle_(::dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

    // Fills a function pointer by name; false when the library or the function is missing.
    template <class Function>
    bool find(Function*& function, const char* name) const {
        function = handle_ != nullptr ? reinterpret_cast<Function*>(::dlsym(handle_, name)) : nullptr;
        return function != nullptr;
    }

private:
    void* handle_;
};

}  // namespace platform
