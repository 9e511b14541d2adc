#include <gtest/gtest.h>

#include "support/loopback_server.h"

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
#else
int main(int argc, char** argv) {
#endif
    testing::InitGoogleTest(&argc, argv);
    LoopbackServer::begin();
    return RUN_ALL_TESTS();
}
