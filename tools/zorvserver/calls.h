// The four calls of the protocol, without HTTP: from what a client sends to the answer that it gets.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>

#include "base/json.h"
#include "upload_store.h"

namespace zorvalis {

struct Reply {
    Json answer;
    // For the log: the file, or what else the call was about, and which bytes; either may be empty.
    std::string subject, bytes;
};

class Calls {
public:
    // `settings` is the folder of setting documents; when it is empty, no client gets one.
    Calls(UploadStore& store, std::filesystem::path settings) : store_(store), settings_(std::move(settings)) {}

    // `call` is the word after "/api/FS/"; `input` is the body, for "finishupload" the rest of the path. A refusal is a
    // word in "status". Any thread; requests are answered one after another. Raises what the store raises.
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
