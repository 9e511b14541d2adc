// `zorvctl trace` and `zorvctl log`: the stand-in machine's trace session and event log, in which the service says what
// it does.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "base/json.h"
#include "base/text.h"
#include "commands.h"
#include "host.h"
#include "output.h"
#include "platform/files.h"

namespace zorvalis {

namespace {

struct TraceOptions {
    int level = 4;
    std::uint32_t flags = 1;
    double seconds = 0;
    bool all = false, noFollow = false, off = false;
};

struct LogOptions {
    std::size_t last = 0;
    bool json = false;
};

// Undoes the escapes of trace.log. Line ends inside the text are kept, and the lines after them are indented.
std::string ReadableMessage(const std::string& escaped) {
    std::string plain;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        const bool escape = escaped[i] == '\\' && i + 1 < escaped.size();
        const char c = escape ? escaped[++i] : escaped[i];
        plain += !escape ? c : c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
    }
    plain.erase(plain.find_last_not_of("\r\n") + 1);
    std::string readable;
    for (const std::string& line : SplitString(plain, '\n')) {
        readable += (readable.empty() ? "" : "\n    ") + ReadableText(line);
    }
    return readable;
}

// A line of trace.log has time, process id, message number and text; any other line is printed as it is.
std::string ReadableTraceLine(const std::string& line) {
    const std::vector<std::string> fields = SplitString(line, '\t');
    if (fields.size() < 3) {
        return ReadableText(line) + "\n";
    }
    return LocalTimeText(std::strtod(fields[0].c_str(), nullptr)) + "  " + ReadableText(fields[1]) + "  " +
           (fields.size() > 3 ? ReadableMessage(fields[3]) : "") + "\n";
}

// Prints what is appended to trace.log, line by line.
class LogFollower {
public:
    LogFollower(const std::string& path, bool fromStart) : path_(path), offset_(fromStart ? 0 : Size()) {}

    void PrintNew() {
        if (Size() < offset_) {  // the log was emptied or replaced
            offset_ = 0;
            partial_.clear();
        }
        const platform::File file = platform::open_file(path_, "rb");
        if (!file || std::fseek(file.get(), offset_, SEEK_SET) != 0) {
            return;
        }
        char block[65536];
        while (const std::size_t count = std::fread(block, 1, sizeof block, file.get())) {
            partial_.append(block, count);
            offset_ += static_cast<long>(count);
        }
        std::size_t start = 0;
        for (std::size_t end; (end = partial_.find('\n', start)) != std::string::npos; start = end + 1) {
            Print(ReadableTraceLine(partial_.substr(start, end - start)));
        }
        partial_.erase(0, start);
        FlushOutput();
    }

private:
    long Size() const {
        std::error_code error;
        const auto size = std::filesystem::file_size(path_, error);
        return error ? 0 : static_cast<long>(size);
    }

    std::string path_;
    long offset_;
    std::string partial_;
};

void TurnOn(const std::string& session, const TraceOptions& options) {
    WriteIntoPlace(session, "{\"level\": " + std::to_string(options.level) +
                                ", \"flags\": " + std::to_string(options.flags) + "}\n");
}

void Trace(const TraceOptions& options) {
    const std::string machine = StandInMachine("make a trace session with the system's own tools");
    const std::string session = machine + "/trace.json";
    if (options.off) {
        Require(platform::file_exists(session), "no trace session is on");
        return Require(platform::remove_file(session), session + " cannot be deleted: check who may write there");
    }
    if (options.noFollow) {
        TurnOn(session, options);
        return Complain("tracing into " + machine + "/trace.log until `zorvctl trace --off`");
    }
    CatchInterruption();
    LogFollower follower(machine + "/trace.log", options.all);
    {
        const auto turnOff = [](const std::string* path) { platform::remove_file(*path); };
        TurnOn(session, options);
        const std::unique_ptr<const std::string, decltype(turnOff)> turnedOn(&session, turnOff);
        Complain("tracing until Ctrl-C");
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
        while (!Interrupted() && (options.seconds == 0 || std::chrono::steady_clock::now() < end)) {
            follower.PrintNew();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    follower.PrintNew();
}

// Raises std::logic_error, as the JSON library does, for a line that is not an entry.
std::string ReadableEntry(const std::string& line) {
    const Json entry = ParseJson(line);
    const int type = entry.at("type").get<int>();
    const char* word = type == 1 ? "Error" : type == 2 ? "Warning" : type == 4 ? "Information" : "Other";
    std::string text = LocalTimeText(entry.at("time").get<double>()) + "  " + FitTo(word, 11);
    for (const Json& each : entry.at("strings")) {
        text += "  " + ReadableText(each.get<std::string>());
    }
    return text + "\n";
}

void PrintEvents(const LogOptions& options) {
    const std::string machine =
        StandInMachine("the events of the source Zorvalis are in the system's event viewer, under Application");
    const std::string path = machine + "/eventlog.jsonl";
    if (!platform::file_exists(path)) {
        return Complain("the event log is empty");
    }
    const std::vector<std::string> lines = SplitString(ReadWholeFile(path), '\n');
    int unreadable = 0;
    for (std::size_t i = lines.size() - std::min(options.last > 0 ? options.last : lines.size(), lines.size());
         i < lines.size(); ++i) {
        try {
            const std::string entry = ReadableEntry(lines[i]);
            Print(options.json ? lines[i] + "\n" : entry);
        } catch (const std::logic_error&) {
            ++unreadable;
        }
    }
    Require(unreadable == 0, std::to_string(unreadable) + " lines of " + path + " are no entries and were left out");
}

}  // namespace

void AddTraceCommand(CLI::App& app) {
    const auto options = std::make_shared<TraceOptions>();
    CLI::App* trace = app.add_subcommand("trace", "Turns a trace session on and follows it until Ctrl-C");
    trace->add_option("--level", options->level, "Messages up to this level (4)")->check(CLI::Range(0, 255));
    trace->add_option("--flags", options->flags, "Flag bits of the session (1)");
    trace->add_option("--seconds", options->seconds, "Ends by itself after so many")->check(CLI::NonNegativeNumber);
    trace->add_flag("--all", options->all, "Begins with what the log holds already");
    CLI::Option* noFollow = trace->add_flag("--no-follow", options->noFollow, "Turns it on and leaves it on");
    trace->add_flag("--off", options->off, "Turns it off")->excludes(noFollow);
    trace->callback([options] { Trace(*options); });
}

void AddLogCommand(CLI::App& app) {
    const auto options = std::make_shared<LogOptions>();
    CLI::App* log = app.add_subcommand("log", "Prints the machine's event log, newest entry last");
    log->add_option("--last", options->last, "Only the newest N entries")->check(FromOne)->type_name("N");
    log->add_flag("--json", options->json, "As it is stored, an object a line");
    log->callback([options] { PrintEvents(*options); });
}

}  // namespace zorvalis
