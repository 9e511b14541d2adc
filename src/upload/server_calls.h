// The three calls that carry a file to the server. Each gives the parsed answer, or the JSON number 0 for none.
#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"

namespace zorvalis {

// Registers a file and asks where to go on. `size` in bytes, `md5` of the whole file.
Json InitUploadFile(const std::string& fileName, std::int64_t size, const std::string& md5);

// Sends one piece, in Base64, with its own MD5.
Json UploadFileChunk(const std::string& fileUuid, const std::string& chunk, const std::string& md5);

Json FinishUpload(const std::string& fileUuid);

}  // namespace zorvalis
