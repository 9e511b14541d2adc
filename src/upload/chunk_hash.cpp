#include "upload/chunk_hash.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "common/files.h"
#include "common/log.h"
#include "platform/digest.h"
#include "platform/files.h"

namespace zorvalis {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The log line of each failed platform::DigestStep, in that order; %d is its error number. A file that cannot be opened
// is not logged.
constexpr const char* kFailures[] = {nullptr,
                                     "CryptAcquireContext failed: %d\n",
                                     "CryptAcquireContext failed: %d\n",  // Kept: create_hash has the same words
                                     "ReadFile failed: %d\n",
                                     "CryptHashData failed: %d\n",
                                     "CryptGetHashParam failed: %d\n"};

// The contents of a file. Kept: a short read is only logged, with `shortWords`; zeros stand for what was not read.
std::string ReadFile(std::FILE* file, const char* shortWords) {
    const std::int64_t size = std::max<std::int64_t>(platform::seek_to_end(file), 0);
    std::rewind(file);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (std::fread(bytes.data(), 1, bytes.size(), file) < bytes.size()) {
        LogMessage(shortWords);
    }
    return bytes;
}

std::string Encode(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    char* out = text.data();
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(bytes.size() - at, 3);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        }
        for (std::size_t i = 0; i <= count; ++i) {
            out[i] = kAlphabet[group >> (18 - 6 * i) & 0x3F];
        }
        out += 4;
    }
    return text;
}

std::string Decode(const std::string& text) {
    std::string bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char c : text) {
        const std::size_t value = kAlphabet.find(c);
        if (value == std::string_view::npos) {
            break;  // the padding, or a character that is not Base64
        }
        group = group << 6 | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 0xFF);
        }
    }
    return bytes;
}

// Empty when the path exceeds the product's 260 bytes: cut off, it could name the source file, which would then be
// overwritten.
std::string ChunkPath(const std::string& path, std::int32_t start, std::int32_t block) {
    std::array<char, 260> buffer{};
    const int length = std::snprintf(buffer.data(), buffer.size(), "%s_MD5_%d_%d", path.c_str(), start, block);
    return length < static_cast<int>(buffer.size()) ? buffer.data() : "";
}

}  // namespace

void createMD5forFile(const std::string& path, std::optional<std::string>& md5) {
    LogMessage("createMD5 path: " + path);
    LogMessage("mbsrtowcs_s: 0");  // Kept: reports a conversion; md5_of_file takes the path as it is
    const platform::DigestResult result = platform::md5_of_file(path);
    if (!result.digest) {
        if (const char* const format = kFailures[static_cast<std::size_t>(result.step)]) {
            std::array<char, 64> words{};
            std::snprintf(words.data(), words.size(), format, static_cast<int>(result.error));
            LogMessage(words.data());
        }
        return;
    }
    const std::string text = Hexadecimal(*result.digest);
    LogMessage("MD5 is: " + text);
    md5 = text;
    LogMessage("strcpy_s: 0");  // Kept: reports a copy, which cannot fail
    LogMessage("createMD5forFile md5 is: " + text);
}

std::string getMD5(const std::string& path, std::int32_t start, std::int32_t blockSize, bool removeTemporary,
                   std::optional<std::string>& chunkPath) {
    platform::File source = platform::open_file(path, "rb");
    if (source == nullptr) {
        return "";
    }
    const std::int64_t total = platform::seek_to_end(source.get());
    LogMessage("getMD5 totalsize: " + std::to_string(total) + " start size: " + std::to_string(start));
    const auto block = static_cast<std::int32_t>(std::min<std::int64_t>(blockSize, total - start));
    LogMessage("getMD5 blocksize: " + std::to_string(block));
    std::fseek(source.get(), start, SEEK_SET);
    const std::string chunk = ChunkPath(path, start, block);  // a short last piece has its real length in its name
    if (chunk.empty()) {
        return "";
    }
    platform::remove_file(chunk);
    platform::File target = platform::open_file(chunk, "wb+");
    if (target == nullptr || !platform::copy_bytes(source.get(), target.get(), block, 0)) {
        target.reset();
        platform::remove_file(chunk);
        return "";  // half a chunk, or an old one that could not be replaced, must not be sent
    }
    target.reset();
    source.reset();
    std::optional<std::string> md5;
    createMD5forFile(chunk, md5);
    if (removeTemporary) {
        platform::remove_file(chunk);
        LogMessage("getMD5 removetemp");
    } else {
        chunkPath = chunk;
        LogMessage("getMD5 chunkfilepath name: " + chunk);
    }
    if (!md5) {
        return "";
    }
    LogMessage("MD5 final is " + *md5);
    return *md5;
}

void RemoveLeftovers(const std::string& fileName) {
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(kDataFolder, entries);
    const std::string chunk = fileName + "_MD5_";  // then start and length in decimal, both perhaps negative
    for (const platform::FolderEntry& entry : entries) {
        if (entry.name.starts_with(chunk) &&
            entry.name.find_first_not_of("-0123456789_", chunk.size()) == std::string::npos) {
            platform::remove_file(kDataFolder + entry.name);
        }
    }
    for (const char* ending : {".cached", ".cached.temp", ".cached-journal"}) {
        platform::remove_file(kDataFolder + fileName + ending);
    }
}

std::string base64_FileEncode(const std::string& path) {
    LogMessage("[base64_FileEncode] Start filename: " + path);
    std::string result = " ";
    if (const platform::File file = platform::open_file(path, "rb")) {
        LogMessage("[base64_FileEncode] File not null ");
        result = Encode(ReadFile(file.get(), "[base64_FileEncode] result != totalsize "));
    }
    LogMessage("[base64_FileEncode] End ");
    return result;
}

std::string base64_FileDecode(const std::string& path) {
    LogMessage("[base64_FileDecode] Start filename: " + path);
    std::string result;
    if (const platform::File file = platform::open_file(path, "rb")) {
        LogMessage("[base64_FileDecode] File not null ");
        result = Decode(ReadFile(file.get(), "[base64_FileDecode] result != totalsize "));
    }
    LogMessage("[base64_FileDecode] End ");
    return result;
}

}  // namespace zorvalis
