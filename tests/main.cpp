#include <gtest/gtest.h>

#ifdef _WIN32
#include "support/loopback_server.h"

int wmain(int argc, wchar_t** argv) {
    // The proxy that leads to servers of tests is looked up once, at the first request of whatever test.
    LoopbackServer(nullptr).stand_for("");
#else
int main(int argc, char** argv) {
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
