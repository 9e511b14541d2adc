// Cuts a piece out of a file, hashes files with MD5, and turns files into Base64 text. Failure shows only in the
// result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zorvalis {

// `md5` becomes 32 lower-case hexadecimal digits, or stays empty.
void createMD5forFile(const std::string& path, std::optional<std::string>& md5);

// Writes the block from `start` on, `blockSize` bytes or what is left, to a file of its own beside `path` and gives its
// MD5; empty for a failure. Unless it is removed again, the chunk file is the caller's, at `chunkPath`.
std::string getMD5(const std::string& path, std::int32_t start, std::int32_t blockSize, bool removeTemporary,
                   std::optional<std::string>& chunkPath);

// Removes what an upload or a cycle that was killed left beside a file of the data folder: chunk files, the working
// copy and its companions. The file itself need not be there.
void RemoveLeftovers(const std::string& fileName);

// The whole file as Base64 text; one blank when it cannot be opened.
std::string base64_FileEncode(const std::string& path);

// The contents of a file of Base64 text up to its padding; empty when it cannot be opened.
std::string base64_FileDecode(const std::string& path);

}  // namespace zorvalis
