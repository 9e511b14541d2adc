// Makes the server misbehave on demand. The script is a file of lines, each a JSON object:
//     {"call": "uploadfilechunk", "nth": 3, "do": "status", "code": 500}
// Only the first line counts. Each request of its "call" ("*" or absent: any call) lowers its "nth" (absent: 1) in the
// file; at 1 the line is taken out and done. So the file always shows what is still to come, and may be rewritten at
// any time. kMisdeedHelp lists the kinds. Any thread; raises std::runtime_error for a line that is wrong.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace zorvalis {

inline constexpr char kMisdeedHelp[] =
    "  status      answers with the HTTP status \"code\" and the body \"text\" (or none)\n"
    "  garbage     answers with bytes that are no JSON\n"
    "  empty       answers 200 with an empty body\n"
    "  body        answers 200 with the body \"text\"\n"
    "  huge        answers 200 with a JSON object of \"mib\" MiB\n"
    "  drop        closes the connection without an answer\n"
    "The kinds above leave the request undone, those below do it first:\n"
    "  half        sends half of the answer and closes the connection\n"
    "  slow        answers after \"ms\" milliseconds\n"
    "  drop-after  closes the connection without an answer\n"
    "  offset      puts \"offset\" in the place of \"filesize\" in the answer\n";

struct Misdeed {
    enum class Kind { status, garbage, empty, body, huge, drop, half, slow, dropAfter, offset };
    Kind kind;
    std::string name;
    std::int64_t number = 0;  // "code", "mib", "ms" or "offset"
    std::string text;         // "text", the body of the answer

    // Whether the request is done before it is answered badly. The order of Kind says so.
    bool DoneBefore() const { return kind >= Kind::half; }
};

class Script {
public:
    // A file that does not exist is an empty script; so is an empty path.
    explicit Script(std::filesystem::path path) : path_(std::move(path)) {}

    // Raises for the first line that is wrong.
    void Check() const;

    // What to do to this request of `call`; nothing when it is to be answered well. Counts it in the file.
    std::optional<Misdeed> Next(const std::string& call);

private:
    std::mutex mutex_;
    std::filesystem::path path_;
};

}  // namespace zorvalis
