#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/notebook.h"
#include "targets.h"

namespace zorvalis {
namespace {

// What a target does with an input beyond the system's own errors ends the test program.
int RunCorpus(const char* name, void (*target)(const std::string&)) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(ZORV_CORPUS) / name)) {
        SCOPED_TRACE(entry.path().string());
        std::ifstream file(entry.path(), std::ios::binary);
        EXPECT_NO_THROW(target(std::string(std::istreambuf_iterator<char>(file), {})));
        ++count;
    }
    return count;
}

TEST(Corpus, IsTakenAsTheSystemTakesBadInput) {
    Notebook machine;
    EXPECT_GT(RunCorpus("setting_document", FuzzSettingDocument), 20);
    EXPECT_GT(RunCorpus("server_answer", FuzzServerAnswer), 20);
}

}  // namespace
}  // namespace zorvalis
