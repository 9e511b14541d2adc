#include "platform/entry.h"

#include <cstdio>
#include <cstdlib>

// Pool threads may still run, for ever: the process ends without destroying what they use.
int wmain(int argc, wchar_t** argv) {
    platform::distrust_users();
    const int code = program_main(argc, argv);
    std::fflush(nullptr);
    ::_exit(code);
}
