// What the C interface makes of arguments, on both sides: no service has to run.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "zorvalis.h"

namespace {

TEST(SdkInterface, RefusesNullsAndStructuresOfNoSizeAndTakesNewerOnes) {
    constexpr char kNobody[] = "nobody-listens-at-this-endpoint";
    constexpr std::uint32_t kOptions = sizeof(ZorvalisOptions), kCallbacks = sizeof(ZorvalisCallbacks);
    const struct {
        std::uint32_t options, callbacks;
        std::int32_t status;
    } cases[] = {{0, kCallbacks, ZORVALIS_BAD_ARGUMENT},
                 {kOptions - 1, kCallbacks, ZORVALIS_BAD_ARGUMENT},
                 {kOptions, kCallbacks - 1, ZORVALIS_BAD_ARGUMENT},
                 {kOptions, kCallbacks, ZORVALIS_NO_SERVICE},
                 {kOptions + 8, kCallbacks + 8, ZORVALIS_NO_SERVICE}};
    for (const auto& each : cases) {
        struct {
            ZorvalisOptions known;
            void* newer;
        } options = {{each.options, 1, 0, kNobody}, nullptr};
        struct {
            ZorvalisCallbacks known;
            void* newer;
        } callbacks = {};
        callbacks.known.size = each.callbacks;
        auto* client = reinterpret_cast<ZorvalisClient*>(&options);
        EXPECT_EQ(ZorvalisOpen(&options.known, &callbacks.known, &client), each.status) << ZorvalisErrorText();
        EXPECT_EQ(client, nullptr);
    }
    char* output = reinterpret_cast<char*>(&output);
    std::int32_t result = 7;
    for (const std::int32_t status :
         {ZorvalisOpen(nullptr, nullptr, nullptr), ZorvalisSetLimit(nullptr, 1), ZorvalisCancel(nullptr),
          ZorvalisGetModelName(nullptr, 1), ZorvalisGetUUID(nullptr, 64, nullptr),
          ZorvalisGetUUID(nullptr, 64, &output), ZorvalisSetMyZorvPP(nullptr, "", "", "", "", 1, &result)}) {
        EXPECT_EQ(status, ZORVALIS_BAD_ARGUMENT);
    }
    EXPECT_TRUE(output == nullptr && result == 0 && ZorvalisClose(nullptr) == 0);
    ZorvalisFree(nullptr);
}

TEST(SdkInterface, KeepsTheWordsOfEachThreadApart) {
    ZorvalisCancel(nullptr);
    std::string before = "?", after;
    std::thread([&] {
        before = ZorvalisErrorText();
        ZorvalisOpen(nullptr, nullptr, nullptr);
        after = ZorvalisErrorText();
    }).join();
    EXPECT_EQ(before, "");
    EXPECT_EQ(after, "there is no place for the client");
    EXPECT_STREQ(ZorvalisErrorText(), "the client is null");
}

}  // namespace
