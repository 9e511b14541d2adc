// The test program, and the client that it is when it is started as one.
#include <gtest/gtest.h>

#include "support/loopback_server.h"
#include "windows/held_context.h"

int wmain(int argc, wchar_t** argv) {
    if (const int code = HeldContext::run_process(argc, argv); code != -1) {
        return code;
    }
    testing::InitGoogleTest(&argc, argv);
    LoopbackServer::begin();
    return RUN_ALL_TESTS();
}
