// A shared library opened by its bare name, as an installed program finds it: from beside the executable first.
// Names end in ".dll"; on the stand-in machine the same library ends in ".so".
#pragma once

namespace platform {

class SharedLibrary {
public:
    // A library that is missing or damaged gives an object without symbols.
    explicit SharedLibrary(const wchar_t* name);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    bool is_open() const { return handle_ != nullptr; }

    // The export of that name as a function pointer, null when it is missing.
    template <class Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

private:
    void* symbol(const char* name) const;
    void* handle_;
};

}  // namespace platform
