// The test program, and the two other parts that it plays when it is started with their arguments.
#include <gtest/gtest.h>

#include "support/loopback_server.h"
#include "windows/doubles.h"
#include "windows/held_context.h"

int wmain(int argc, wchar_t** argv) {
    for (const auto part : {HeldContext::run_process, WatchedProcess::run_launcher}) {
        if (const int code = part(argc, argv); code != -1) {
            return code;
        }
    }
    testing::InitGoogleTest(&argc, argv);
    LoopbackServer::begin();
    return RUN_ALL_TESTS();
}
