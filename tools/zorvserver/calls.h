// The four calls of the protocol, without any HTTP: what a client sends and the answer that is due.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>

#include "base/json.h"
#include "upload_store.h"

namespace zorvalis {

struct Reply {
    Json answer;
    // For the log: the file, or what else the call was about, and which bytes of it; may be empty.
    std::string subject, bytes;
};

class Calls {
public:
    // Without a folder of settings no client has one.
    Calls(UploadStore& store, std::filesystem::path settings) : store_(store), settings_(std::move(settings)) {}

    // `call` is the word behind "/api/FS/", `input` the body, or the rest of the path for "finishupload". Any thread;
    // requests are answered one after another. Every refusal is a word in "status"; raises what the store raises.
    Reply Answer(const std::string& call, const std::string& input);

private:
    Reply Query(const Json& request);
    Reply InitUploadFile(const Json& request);
    Reply UploadFileChunk(const Json& request);
    Reply FinishUpload(const std::string& uuid);

    std::mutex mutex_;
    UploadStore& store_;
    std::filesystem::path settings_;
};

}  // namespace zorvalis
