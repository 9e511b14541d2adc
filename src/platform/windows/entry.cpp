// wmain: the arguments come as wide text already.
#include "platform/entry.h"

#include <cstdio>
#include <cstdlib>

// _exit instead of a return: pool threads may run for ever, and no destructor may take away what they use.
int wmain(int argc, wchar_t** argv) {
    platform::distrust_users();
    const int code = program_main(argc, argv);
    std::fflush(nullptr);
    ::_exit(code);
}
