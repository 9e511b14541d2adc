// `zorvctl trace` and `zorvctl log`: the stand-in machine's trace session and event log, in which the service says what
// it does.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "base/json.h"
#include "base/text.h"
#include "commands.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "windows_tools.h"

namespace zorvalis {

namespace {

struct TraceOptions {
    int level = 4;
    std::uint32_t flags = 1;
    double seconds = 0;
    bool all = false, noFollow = false, off = false, json = false;
};

struct LogOptions {
    std::size_t last = 0;
    std::string since;
    double seconds = 0;
    bool json = false, follow = false;
};

// The text to print for a line of a log; empty for one that is left out.
using LineView = std::function<std::string(const std::string& line)>;

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

std::string TraceLineAsJson(const std::string& line) {
    const std::vector<std::string> fields = SplitString(line, '\t');
    const auto field = [&](std::size_t index) { return ReadableText(index < fields.size() ? fields[index] : ""); };
    return DumpJson({{"time", std::strtod(field(0).c_str(), nullptr)},
                     {"process", field(1)},
                     {"message", field(2)},
                     {"text", fields.size() > 3 ? ReadableMessage(fields[3]) : ""}}) +
           "\n";
}

// Prints what is appended to a log, line by line.
class LogFollower {
public:
    LogFollower(const std::string& path, LineView view, long offset)
        : path_(path), view_(std::move(view)), offset_(offset) {}

    // Until Ctrl-C, or so many seconds when that is not 0.
    void Follow(double seconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (!Interrupted() && (seconds == 0 || std::chrono::steady_clock::now() < end)) {
            PrintNew();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        PrintNew();
    }

    static long SizeOf(const std::string& path) {
        std::error_code error;
        const auto size = std::filesystem::file_size(path, error);
        return error ? 0 : static_cast<long>(size);
    }

private:
    void PrintNew() {
        if (SizeOf(path_) < offset_) {  // the log was emptied or replaced
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
            Print(view_(partial_.substr(start, end - start)));
        }
        partial_.erase(0, start);
        FlushOutput();
    }

    std::string path_;
    LineView view_;
    long offset_;
    std::string partial_;
};

void TurnOn(const std::string& session, const TraceOptions& options) {
    WriteIntoPlace(session, "{\"level\": " + std::to_string(options.level) +
                                ", \"flags\": " + std::to_string(options.flags) + "}\n");
}

void Trace(const TraceOptions& options) {
    const std::string machine =
        StandInMachine("a trace session is made by " + TraceCommands(options.level, options.flags));
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
    const std::string log = machine + "/trace.log";
    LogFollower follower(log, options.json ? TraceLineAsJson : ReadableTraceLine,
                         options.all ? 0 : LogFollower::SizeOf(log));
    {
        const auto turnOff = [](const std::string* path) { platform::remove_file(*path); };
        TurnOn(session, options);
        const std::unique_ptr<const std::string, decltype(turnOff)> turnedOn(&session, turnOff);
        Complain("tracing until Ctrl-C");
        follower.Follow(options.seconds);
    }
}

// A time such as "2026-12-24 18:00", or a span up to now such as "2h"; in seconds since 1970.
double SinceOf(const std::string& text) {
    int number = 0, end = 0;
    char unit = 0;
    std::tm time{};
    if (std::sscanf(text.c_str(), "%9d%c%n", &number, &unit, &end) == 2 && end == static_cast<int>(text.size()) &&
        number >= 0 && std::string_view("smhd").find(unit) != std::string_view::npos) {
        const int seconds = unit == 's' ? 1 : unit == 'm' ? 60 : unit == 'h' ? 3600 : 24 * 3600;
        return static_cast<double>(platform::now_seconds()) - static_cast<double>(number) * seconds;
    }
    const bool day = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &time.tm_year, &time.tm_mon, &time.tm_mday, &end) == 3;
    int rest = 0;
    const bool hour = day && std::sscanf(text.c_str() + end, " %2d:%2d%n:%2d%n", &time.tm_hour, &time.tm_min, &rest,
                                         &time.tm_sec, &rest) >= 2;
    end += hour ? rest : 0;
    Require(day && end == static_cast<int>(text.size()) && time.tm_mon >= 1 && time.tm_mon <= 12 && time.tm_mday >= 1 &&
                time.tm_mday <= 31 && time.tm_hour < 24 && time.tm_min < 60 && time.tm_sec < 60,
            "--since takes a time like \"2026-12-24 18:00\", or a span up to now like 3d, 12h, 90m or 45s",
            kWrongUsage);
    time.tm_year -= 1900;
    time.tm_mon -= 1;
    return static_cast<double>(platform::local_seconds(time));
}

// An entry of the event log. Raises std::logic_error, as the JSON library does, for a line that is none.
struct Entry {
    explicit Entry(const std::string& line) {
        const Json entry = ParseJson(line);
        const int type = entry.at("type").get<int>();
        const char* word = type == 1 ? "Error" : type == 2 ? "Warning" : type == 4 ? "Information" : "Other";
        time = entry.at("time").get<double>();
        text = LocalTimeText(time) + "  " + FitTo(word, 11);
        for (const Json& each : entry.at("strings")) {
            text += "  " + ReadableText(each.get<std::string>());
        }
    }
    double time;
    std::string text;
};

void PrintEvents(const LogOptions& options) {
    const std::string path =
        StandInMachine("the event log is read by `" + EventLogCommand(options.last) + "`") + "/eventlog.jsonl";
    const double since = options.since.empty() ? 0 : SinceOf(options.since);
    int unreadable = 0;
    const auto view = [&](const std::string& line) -> std::string {
        try {
            const Entry entry(line);
            return entry.time < since ? "" : (options.json ? line : entry.text) + "\n";
        } catch (const std::logic_error&) {
            ++unreadable;
            return "";
        }
    };
    const std::string log = platform::file_exists(path) ? ReadWholeFile(path) : "";
    const std::size_t whole = log.rfind('\n') + 1;  // a line that is still being written is left to the follower
    std::vector<std::string> shown;
    for (const std::string& line : SplitString(options.follow ? log.substr(0, whole) : log, '\n')) {
        shown.push_back(view(line));
    }
    std::erase(shown, "");
    if (options.last > 0 && shown.size() > options.last) {
        shown.erase(shown.begin(), shown.end() - static_cast<std::ptrdiff_t>(options.last));
    }
    const bool list = options.json && !options.follow;  // a follower's output has no end: an object a line
    Print(list ? "[" : "");
    for (const std::string& entry : shown) {
        Print((list && &entry != &shown.front() ? "," : "") + (list ? entry.substr(0, entry.size() - 1) : entry));
    }
    Print(list ? "]\n" : "");
    if (shown.empty() && !options.json) {
        Complain(since > 0 ? "the event log has no entry since then" : "the event log is empty");
    }
    if (options.follow) {
        FlushOutput();
        CatchInterruption();
        LogFollower(path, view, static_cast<long>(whole)).Follow(options.seconds);
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
    trace->add_flag("--json", options->json, "As JSON, an object a line");
    CLI::Option* noFollow = trace->add_flag("--no-follow", options->noFollow, "Turns it on and leaves it on");
    trace->add_flag("--off", options->off, "Turns it off")->excludes(noFollow);
    trace->callback([options] { Trace(*options); });
}

void AddLogCommand(CLI::App& app) {
    const auto options = std::make_shared<LogOptions>();
    CLI::App* log = app.add_subcommand("log", "Prints the machine's event log, newest entry last");
    log->add_option("--last", options->last, "Only the newest N entries")->check(FromOne)->type_name("N");
    log->add_option("--since", options->since, "Only entries since then, as \"2026-12-24 18:00\", 3d, 12h, 90m or 45s")
        ->type_name("TIME");
    CLI::Option* follow = log->add_flag("--follow,-f", options->follow, "Prints new entries until Ctrl-C");
    log->add_option("--seconds", options->seconds, "Ends following by itself after so many")
        ->check(CLI::NonNegativeNumber)
        ->needs(follow);
    log->add_flag("--json", options->json, "As JSON, a list; with --follow an object a line");
    log->callback([options] { PrintEvents(*options); });
}

}  // namespace zorvalis
