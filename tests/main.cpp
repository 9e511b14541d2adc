#include <gtest/gtest.h>

#include "support/loopback_server.h"
#ifndef _WIN32
#include "platform/linux/curl_library.h"
#endif

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
#else
int main(int argc, char** argv) {
    platform::curl();  // before there are threads: the thread sanitizer takes a late library for the stack of an ended
                       // one
#endif
    testing::InitGoogleTest(&argc, argv);
    LoopbackServer::begin();
    return RUN_ALL_TESTS();
}
