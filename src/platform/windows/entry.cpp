#include "platform/entry.h"

int wmain(int argc, wchar_t** argv) {
    return program_main(argc, argv);
}
