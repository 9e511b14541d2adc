// The script's lines, read and rewritten as a whole file for each request.
#include "script.h"

#include <fstream>
#include <stdexcept>
#include <vector>

#include "base/json.h"

namespace zorvalis {

namespace {

namespace fs = std::filesystem;
using Kind = Misdeed::Kind;

// The kinds by name, with the member that holds the kind's number and the range of that number.
constexpr struct {
    const char* name;
    Kind kind;
    const char* number;  // null when the kind has none
    std::int64_t least, most;
} kKinds[] = {
    {"status", Kind::status, "code", 200, 599},
    {"garbage", Kind::garbage, nullptr, 0, 0},
    {"empty", Kind::empty, nullptr, 0, 0},
    {"body", Kind::body, nullptr, 0, 0},
    {"huge", Kind::huge, "mib", 1, 1024},
    {"drop", Kind::drop, nullptr, 0, 0},
    {"half", Kind::half, nullptr, 0, 0},
    {"slow", Kind::slow, "ms", 0, 3600000},
    {"drop-after", Kind::dropAfter, nullptr, 0, 0},
    {"offset", Kind::offset, "offset", INT64_MIN, INT64_MAX},
};

struct Line {
    std::string call;
    std::int64_t nth;
    Misdeed misdeed;
};

Misdeed ParseMisdeed(const Json& line) {
    const std::string name = line.at("do").get<std::string>();
    for (const auto& each : kKinds) {
        if (name != each.name) {
            continue;
        }
        Misdeed misdeed{each.kind, name, 0, line.value("text", "")};
        if (each.number != nullptr) {
            misdeed.number = line.at(each.number).get<std::int64_t>();
            if (misdeed.number < each.least || misdeed.number > each.most) {
                throw std::out_of_range(std::string(each.number) + " is out of range");
            }
        }
        return misdeed;
    }
    throw std::invalid_argument("nothing is called \"" + name + "\"");
}

std::vector<std::string> Lines(const fs::path& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

// Refuses members that it does not know, so that a misspelt one is noticed.
Line Parse(const fs::path& path, const std::string& text) {
    try {
        const Json line = ParseJson(text);
        const Line parsed{line.value("call", "*"), line.value("nth", std::int64_t{1}), ParseMisdeed(line)};
        for (const auto& member : line.items()) {
            const std::string& key = member.key();
            if (key != "call" && key != "nth" && key != "do" && key != "text" && key != "code" && key != "mib" &&
                key != "ms" && key != "offset") {
                throw std::invalid_argument("nothing is called \"" + key + "\"");
            }
        }
        return parsed;
    } catch (const std::logic_error& error) {
        throw std::runtime_error(path.string() + ": " + text + ": " + error.what());
    }
}

void Rewrite(const fs::path& path, const std::vector<std::string>& lines) {
    const fs::path written = path.string() + ".new";
    std::ofstream file(written, std::ios::trunc);
    for (const std::string& line : lines) {
        file << line << '\n';
    }
    file.close();
    if (!file) {
        throw std::runtime_error(written.string() + " cannot be written");
    }
    fs::rename(written, path);
}

}  // namespace

void Script::Check() const {
    for (const std::string& line : Lines(path_)) {
        Parse(path_, line);
    }
}

std::optional<Misdeed> Script::Next(const std::string& call) {
    const std::lock_guard guard(mutex_);
    std::vector<std::string> lines = Lines(path_);
    if (lines.empty()) {
        return std::nullopt;
    }
    const Line first = Parse(path_, lines.front());
    if (first.call != "*" && first.call != call) {
        return std::nullopt;
    }
    if (first.nth > 1) {
        Json rest = ParseJson(lines.front());
        rest["nth"] = first.nth - 1;
        lines.front() = DumpJson(rest);
        Rewrite(path_, lines);
        return std::nullopt;
    }
    lines.erase(lines.begin());
    Rewrite(path_, lines);
    return first.misdeed;
}

}  // namespace zorvalis
