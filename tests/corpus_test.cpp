#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "surroundings.h"

namespace {

// How the kept inputs of one fuzzer end, all together.
std::set<std::int32_t> Results(const char* corpus, std::int32_t (*run)(std::string_view)) {
    std::set<std::int32_t> results;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(ZORV_CORPUS "/") + corpus)) {
        const std::string name = entry.path().filename().string();
        const testing::ScopedTrace trace(__FILE__, __LINE__, name);
        const std::string input = read_text(entry.path().string());
        EXPECT_NO_THROW(results.insert(run(input))) << "no error of the system's own";
    }
    return results;
}

TEST(Corpus, OfSettingDocumentsEndsAsItMay) {
    EXPECT_EQ(Results("setting_document", FuzzSettingDocument), (std::set<std::int32_t>{kRaised, -1, 0}));
}

TEST(Corpus, OfServerAnswersReachesEachEndOfAnUpload) {
    EXPECT_EQ(Results("server_answers", FuzzServerAnswers), (std::set<std::int32_t>{kRaised, 2, 3, 4, 5}));
}

#ifndef _WIN32
TEST(Corpus, OfTheEndpointsFramesReachesEachAnswer) {
    EXPECT_EQ(Results("rpc_frames", FuzzRpcFrames),
              (std::set<std::int32_t>{-32700, -32602, -32601, -32600, -32000, 0}));
}
#endif

TEST(Corpus, OfClientCallsIsAnsweredInEachWay) {
    EXPECT_EQ(Results("client_call", FuzzClientCall), (std::set<std::int32_t>{kRaised, -1, 0, 1}));
}

}  // namespace
