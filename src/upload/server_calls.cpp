#include "upload/server_calls.h"

#include <utility>

#include "upload/answer.h"
#include "upload/http_client.h"

namespace zorvalis {
namespace {

Json AnswerOf(std::string body) {
    return body == kTransportError ? Json(0) : ParseAnswer(std::move(body));
}

Json Post(const char* path, std::string body) {
    return AnswerOf(HttpSSLPost(getBGServerURL(), path, std::move(body), kJsonContent, kConnectTimeout,
                                kTransferTimeout, kTransferTimeout));
}

}  // namespace

Json InitUploadFile(const std::string& fileName, std::int64_t size, const std::string& md5) {
    Json request;
    request["checksum"] = md5;
    request["filename"] = fileName;
    request["filesize"] = size;
    return Post("/api/FS/inituploadfile", DumpJson(request));
}

Json UploadFileChunk(const std::string& fileUuid, const std::string& chunk, const std::string& md5) {
    // Written by hand, keys in ascending order as DumpJson has them: a digest and Base64 contain nothing to escape, and
    // the JSON library takes longer to look for it than making both takes.
    return Post("/api/FS/uploadfilechunk", "{\"checksum\":\"" + md5 + "\",\"filechunk\":\"" + chunk +
                                               "\",\"fileuuid\":" + DumpJson(fileUuid) + "}");
}

Json FinishUpload(const std::string& fileUuid) {
    return AnswerOf(HttpSSLGet(getBGServerURL(), "/api/FS/finishupload/" + fileUuid, kConnectTimeout, kTransferTimeout,
                               kTransferTimeout));
}

}  // namespace zorvalis
