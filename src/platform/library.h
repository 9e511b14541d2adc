// A shared library opened by its bare name: from beside the executable, on Windows also from System32. The core's names
// end in ".dll", for which the stand-in machine opens ".so". Open and close on any thread.
#pragma once

namespace platform {

class SharedLibrary {
public:
    // A library that is missing or damaged leaves an object that is not open and has no functions.
    explicit SharedLibrary(const wchar_t* name);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    bool is_open() const { return handle_ != nullptr; }

    // The export of that name; null when it is missing. Valid while this object lives.
    template <class Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

private:
    void* symbol(const char* name) const;
    void* handle_;
};

}  // namespace platform
