// The three calls that carry a file to the server. Each returns the parsed answer, or the JSON number 0 when the
// exchange failed; an answer that is not JSON throws std::invalid_argument.
#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"

namespace zorvalis {

// Registers a file and asks where to go on. `size` in bytes, `md5` of the whole file.
Json InitUploadFile(const std::string& fileName, std::int64_t size, const std::string& md5);

// Sends one piece in Base64, with the MD5 of the piece before its encoding.
Json UploadFileChunk(const std::string& fileUuid, const std::string& chunk, const std::string& md5);

// Says that the server has all pieces.
Json FinishUpload(const std::string& fileUuid);

}  // namespace zorvalis
