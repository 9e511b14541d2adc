// The last links of a status: the network, the server by name, connection and certificate, and the latest upload. What
// fails here costs no sample: files wait.
#include "base/text.h"
#include "common/deployment.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "facts.h"
#include "network_words.h"
#include "output.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/machine.h"
#include "upload/file_status.h"
#include "upload/upload_status.h"
#include "uploads.h"

namespace zorvalis {

namespace {

constexpr std::int32_t kPatience = 5000;  // milliseconds for each step
constexpr std::uint16_t kPlainPort = 80, kSecurePort = 443;

// Asks for the head of the root page: any answer shows that name, connection and certificate hold. 0, or the number of
// the step that failed.
std::uint32_t Ask(const std::string& server) {
    const bool secure = server != deployment::TestServer;
    platform::HttpExchange exchange;
    const bool answered =
        exchange.open(L"zorvctl") && exchange.set_timeouts(kPatience, kPatience, kPatience, kPatience) &&
        exchange.connect(WidenBytes(server), secure ? kSecurePort : kPlainPort) &&
        exchange.open_request(L"HEAD", L"/", secure) && exchange.send(nullptr, "") && exchange.receive();
    return answered ? 0 : platform::last_error();
}

// The latest cause that the trace of a stand-in machine holds; the status database keeps none.
std::string TracedCause() {
    constexpr char kMark[] = "Error has occurred: ";
    const std::string path = platform::machine_folder() + "/trace.log";
    const platform::File file = platform::machine_folder().empty() ? nullptr : platform::open_file(path, "rb");
    std::string tail(64 << 10, '\0');
    if (!file) {
        return "";
    }
    std::fseek(file.get(), -static_cast<long>(tail.size()), SEEK_END);  // a shorter file is read from its start
    tail.resize(std::fread(tail.data(), 1, tail.size(), file.get()));
    const std::size_t at = tail.rfind(kMark);
    const unsigned long number =
        at == std::string::npos ? 0 : std::strtoul(tail.c_str() + at + sizeof kMark - 1, nullptr, 10);
    return number == 0 ? "" : "; the trace says: " + NetworkErrorWords(static_cast<std::uint32_t>(number));
}

void AddAttempt(std::vector<Link>& links) {
    const FileRecord* latest = nullptr;
    std::vector<FileRecord> records;
    try {
        records = ReadRecords();
    } catch (const Failure& failure) {
        links.push_back({"last upload", LinkState::warning, ReadableText(failure.text), "`zorvctl uploads`"});
        return;
    }
    for (const FileRecord& record : records) {
        const bool tried = record.uploadStatus != 0 && record.uploadStatus != BG_UPLOAD_STATUS_FILE_NOT_EXIST;
        latest = tried && (latest == nullptr || latest->uploadedTime <= record.uploadedTime) ? &record : latest;
    }
    if (latest == nullptr) {
        links.push_back({"last upload", LinkState::held, "none has been tried yet", ""});
        return;
    }
    const bool sent = latest->status == 1;
    links.push_back({"last upload", sent ? LinkState::held : LinkState::warning,
                     ReadableText(latest->uploadedTime + ", " + latest->fileName + ": " + OutcomeWords(*latest) +
                                  (sent ? "" : TracedCause())),
                     sent ? "" : "`zorvctl uploads`"});
}

}  // namespace

void ReadServer(Facts& facts) {
    const bool online = platform::is_online(), windows = platform::machine_folder().empty();
    facts.links.push_back({"network", online ? LinkState::held : LinkState::warning,
                           online ? "the machine says that it is connected" : "the machine has no network: files wait",
                           online    ? ""
                           : windows ? "connect it"
                                     : "\"online\": true in network.json"});
    const std::wstring stored = ReadRegString(kLocalMachine, kProductKey, L"BGSERVER_URL");
    const std::string server = stored == ERROR_READREG ? deployment::DefaultServer : WideToUtf8(stored);
    if (online) {
        const std::uint32_t error = Ask(server);
        facts.links.push_back(
            {"server", error == 0 ? LinkState::held : LinkState::warning,
             ReadableText(server + ": " +
                          (error == 0 ? "name, connection and certificate hold" : NetworkErrorWords(error))),
             error == 0 ? "" : "`zorvctl server test`"});
    }
    AddAttempt(facts.links);
}

}  // namespace zorvalis
