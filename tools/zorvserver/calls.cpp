// Each call checks what it was sent strictly and answers with the first fault it finds.
#include "calls.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "encoding.h"

namespace zorvalis {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestName = 200;

// An answer that is nothing but its status.
Reply Word(const char* status, std::string subject = "", std::string bytes = "") {
    return {{{"status", status}}, std::move(subject), std::move(bytes)};
}

// Whether a client's name may be a file name: it cannot lead out of its folder.
bool IsPlainName(const std::string& name) {
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    return !name.empty() && name.size() <= kLongestName && name[0] != '.' &&
           name.find_first_of("/\\") == std::string::npos && std::none_of(name.begin(), name.end(), control);
}

std::string Text(const Json& request, const char* key) {
    return request.at(key).get<std::string>();
}

// For the log: the bytes held, those that came, and the size of the file, as "16384+16384/40960".
std::string Span(const Upload& upload, std::size_t bytes) {
    return std::to_string(upload.held) + "+" + std::to_string(bytes) + "/" + std::to_string(upload.size);
}

}  // namespace

Reply Calls::Answer(const std::string& call, const std::string& input) {
    const std::lock_guard guard(mutex_);
    if (call == "finishupload") {
        return FinishUpload(input);
    }
    try {
        const Json request = ParseJson(input);
        return call == "query"            ? Query(request)
               : call == "inituploadfile" ? InitUploadFile(request)
                                          : UploadFileChunk(request);
    } catch (const std::logic_error& error) {  // not JSON, or a member is missing or has another type
        return Word("BAD_REQUEST", error.what());
    }
}

Reply Calls::Query(const Json& request) {
    const std::string version = Text(request, "clientversion"), model = Text(request, "modelname");
    const std::string client = "\"" + model + "\" " + version;
    if (settings_.empty() || !IsPlainName(version)) {
        return Word("NO_SETTING", client);
    }
    const fs::path folder = settings_ / version, own = folder / (model + ".json");
    const fs::path path = IsPlainName(model) && fs::exists(own) ? own : folder / "default.json";
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return Word("NO_SETTING", client);
    }
    const std::string document(std::istreambuf_iterator<char>(file), {});
    try {
        ParseJson(document);
    } catch (const std::invalid_argument& error) {
        return Word("BAD_SETTING", path.string() + ": " + error.what());
    }
    return {{{"status", "OK"}, {"service_version", version}, {"json_string", document}}, client, path.filename()};
}

Reply Calls::InitUploadFile(const Json& request) {
    const std::string fileName = Text(request, "filename"), checksum = Text(request, "checksum");
    const Json& size = request.at("filesize");
    if (!size.is_number_integer() || size.get<std::int64_t>() < 0 || !IsMd5(checksum)) {
        return Word("BAD_REQUEST", fileName);
    }
    if (!IsPlainName(fileName)) {
        return Word("BAD_FILENAME", fileName);
    }
    std::optional<Upload> upload = store_.FindByName(fileName);
    if (!upload || upload->checksum != checksum || upload->size != size.get<std::int64_t>()) {
        upload = store_.Start(fileName, checksum, size.get<std::int64_t>());
    }
    if (upload->finished) {
        return Word("UPLOAD_FINISHED", fileName);
    }
    return {{{"status", "OK"}, {"fileuuid", upload->uuid}, {"filesize", upload->held}}, fileName, Span(*upload, 0)};
}

// A chunk does not say its place: it is appended to the bytes that are held.
Reply Calls::UploadFileChunk(const Json& request) {
    const std::string checksum = Text(request, "checksum"), uuid = Text(request, "fileuuid");
    const std::optional<std::string> chunk = DecodeBase64(request.at("filechunk").get_ref<const std::string&>());
    const std::optional<Upload> upload = store_.FindByUuid(uuid);
    if (!upload) {
        return Word("UNKNOWN_UPLOAD", uuid);
    }
    if (upload->finished) {
        return Word("ALREADY_FINISHED", upload->fileName);
    }
    if (!chunk) {
        return Word("BAD_BASE64", upload->fileName, Span(*upload, 0));
    }
    const std::string span = Span(*upload, chunk->size());
    if (chunk->empty()) {
        return Word("EMPTY_CHUNK", upload->fileName, span);
    }
    if (Md5OfText(*chunk) != checksum) {
        return Word("CHUNK_CHECKSUM_MISMATCH", upload->fileName, span);
    }
    if (static_cast<std::int64_t>(chunk->size()) > upload->size - upload->held) {
        return Word("BEYOND_SIZE", upload->fileName, span);
    }
    store_.Append(*upload, *chunk);
    return Word("OK", upload->fileName, span);
}

Reply Calls::FinishUpload(const std::string& uuid) {
    const std::optional<Upload> upload = store_.FindByUuid(uuid);
    if (!upload) {
        return Word("UNKNOWN_UPLOAD", uuid);
    }
    const std::string span = Span(*upload, 0);
    if (!upload->finished) {
        if (upload->held != upload->size) {
            return Word("SIZE_MISMATCH", upload->fileName, span);
        }
        if (store_.Md5(*upload) != upload->checksum) {
            store_.Discard(*upload);  // which of the bytes are wrong is unknown: the next try begins at 0
            return Word("CHECKSUM_MISMATCH", upload->fileName, span);
        }
        store_.Finish(*upload);
    }
    return Word("OK", upload->fileName, span);
}

}  // namespace zorvalis
