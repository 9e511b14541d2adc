#include "upload/chunk_hash.h"

#include <gtest/gtest.h>

#include "common/files.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "support/machine.h"

namespace zorvalis {
namespace {

const std::string kPath = std::string(kDataFolder) + "x.db";
constexpr char kMd5OfNothing[] = "d41d8cd98f00b204e9800998ecf8427e";

std::string Md5Of(const std::string& path) {
    std::optional<std::string> md5;
    createMD5forFile(path, md5);
    return md5 ? *md5 : "null";
}

TEST(FileAsText, IsItsMd5AndItsBase64) {
    const TestMachine machine;
    CreateSqliteDBFolder();
    const struct {
        std::string bytes;
        std::string md5;
        std::string text;
    } cases[] = {{"", kMd5OfNothing, ""},
                 {"a", "0cc175b9c0f1b6a831c399e269772661", "YQ=="},
                 {"ab", "187ef4436122d1cc2f40dc2b92f0eba0", "YWI="},
                 {"abc", "900150983cd24fb0d6963f7d28e17f72", "YWJj"},
                 {std::string("\xFB\xFF\0\r\n\x1A\xBE", 7), "a502a762993f6fbf02fc0056315cd317", "+/8ADQoavg=="},
                 {std::string(1025, 'a'), "ae187e1febee2a150b64849c32d566ca", ""}};
    for (const auto& one : cases) {
        write_text(kPath, one.bytes);
        EXPECT_EQ(Md5Of(kPath), one.md5);
        const std::string text = base64_FileEncode(kPath);
        EXPECT_EQ(text.substr(0, one.bytes.size() < 1024 ? text.size() : 0), one.text);
        write_text(kPath + ".text", text);
        EXPECT_EQ(base64_FileDecode(kPath + ".text"), one.bytes);
    }
    write_text(kPath, "YWI=YWJj");
    EXPECT_EQ(base64_FileDecode(kPath), "ab") << "nothing counts after the padding";
    ASSERT_TRUE(platform::create_folder(kPath + ".folder"));
    for (const char* ending : {"missing", ".folder"}) {
        EXPECT_EQ(Md5Of(kPath + ending), "null");
    }
    EXPECT_EQ(base64_FileEncode(kPath + "missing"), " ");
    EXPECT_EQ(base64_FileDecode(kPath + "missing"), "");
}

TEST(Chunk, IsAFileOfItsOwnThatNamesItsTrueLength) {
    const TestMachine machine;
    CreateSqliteDBFolder();
    write_text(kPath, "0123456789");
    const struct {
        std::int32_t start;
        std::int32_t block;
        const char* ending;
        const char* bytes;
    } cases[] = {{0, 4, "_MD5_0_4", "0123"},
                 {4, 4, "_MD5_4_4", "4567"},
                 {8, 4, "_MD5_8_2", "89"},
                 {0, 16384, "_MD5_0_10", "0123456789"},
                 {10, 4, "_MD5_10_0", ""}};
    for (const auto& one : cases) {
        std::optional<std::string> chunk;
        write_text(kPath + one.ending, "an older and longer chunk");
        const std::string md5 = getMD5(kPath, one.start, one.block, false, chunk);
        ASSERT_TRUE(chunk) << one.ending;
        EXPECT_EQ(*chunk, kPath + one.ending);
        EXPECT_EQ(read_text(*chunk), one.bytes);
        EXPECT_EQ(md5, Md5Of(*chunk));
        EXPECT_EQ(md5 == kMd5OfNothing, *one.bytes == '\0');
        chunk.reset();
        EXPECT_EQ(getMD5(kPath, one.start, one.block, true, chunk), md5);
        EXPECT_FALSE(chunk);
    }
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{"x.db"}) << "asked to, it takes the chunk away again";
    std::optional<std::string> chunk;
    EXPECT_EQ(getMD5(kPath + "missing", 0, 4, false, chunk), "");
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{"x.db"});
    ASSERT_TRUE(platform::create_folder(kPath + "_MD5_0_4"));  // in the place of the chunk
    EXPECT_EQ(getMD5(kPath, 0, 4, false, chunk), "");
}

}  // namespace
}  // namespace zorvalis
