// Cuts a piece out of a file, hashes files with MD5, and turns files into Base64 text, for the upload. No function
// reports an error; each says below which result stands for a failure. The caller keeps other processes away from the
// file (LockDatabaseFile).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zorvalis {

// `md5` becomes 32 lower-case hexadecimal digits; on failure it is left alone.
void createMD5forFile(const std::string& path, std::optional<std::string>& md5);

// Copies `blockSize` bytes from the offset `start` on, or what is left of the file, into a chunk file beside `path` and
// returns its MD5; empty on failure. With `removeTemporary` the chunk file is deleted again; without, the caller owns
// it and finds its path in `chunkPath`.
std::string getMD5(const std::string& path, std::int32_t start, std::int32_t blockSize, bool removeTemporary,
                   std::optional<std::string>& chunkPath);

// Deletes what a killed upload or a killed cycle left beside a file of the data folder: chunk files, the working copy,
// its journal and its successor. The file itself need not exist.
void RemoveLeftovers(const std::string& fileName);

// The whole file as Base64 text; one blank when it cannot be opened. An empty file gives an empty text.
std::string base64_FileEncode(const std::string& path);

// The way back, up to the padding; empty when the file cannot be opened. Nothing in the product calls it.
std::string base64_FileDecode(const std::string& path);

}  // namespace zorvalis
