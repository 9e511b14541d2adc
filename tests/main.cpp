#include <gtest/gtest.h>

#include "support/loopback_server.h"
#ifndef _WIN32
#include "support/fake_service.h"
#endif

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
#else
int main(int argc, char** argv) {
    if (FakeService::is_wanted()) {
        return FakeService::run_process();
    }
#endif
    testing::InitGoogleTest(&argc, argv);
    LoopbackServer::begin();
    return RUN_ALL_TESTS();
}
