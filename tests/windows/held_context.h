// A client in a process of its own that has opened a context, and dies at the end of a scope without a word.
#pragma once

#include <windows.h>

#include <string>

class HeldContext {
public:
    // `endpoint` empty: the service's own. Returns when the context is open.
    explicit HeldContext(const std::string& endpoint);
    ~HeldContext();
    HeldContext(const HeldContext&) = delete;
    HeldContext& operator=(const HeldContext&) = delete;

    // For the test program, which is that client when it is started with these arguments: -1 if it is not.
    static int run_process(int argc, wchar_t** argv);

private:
    PROCESS_INFORMATION process_{};
};
