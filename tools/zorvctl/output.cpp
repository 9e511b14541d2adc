// Output, complaints, readable text and whole files, for every command.
#include "output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "base/text.h"
#include "base/utf8.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"

namespace zorvalis {

namespace {

bool hasPrinted = false;

void CheckOutput(bool written) {
    // A closed pipe is EPIPE on Linux; the C runtime of Windows reports it as EINVAL.
    if (!written && (errno == EPIPE || errno == EINVAL)) {
        throw ClosedOutput{};
    }
    Require(written, std::string("the output cannot be written: ") + std::strerror(errno));
}

// Characters that do not take one column: combining marks and joiners (0), East Asian wide forms and pictures (2).
struct WidthRange {
    char32_t first, last;
    int width;
};
constexpr WidthRange kWidths[] = {
    {0x0300, 0x036F, 0}, {0x1100, 0x115F, 2}, {0x200B, 0x200F, 0},   {0x2E80, 0xA4CF, 2},
    {0xAC00, 0xD7A3, 2}, {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE30, 0xFE6F, 2},
    {0xFF00, 0xFF60, 2}, {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1FAFF, 2}, {0x20000, 0x3FFFD, 2},
};

int CharacterWidth(char32_t character) {
    if (character < kWidths[0].first) {
        return 1;
    }
    for (const WidthRange& range : kWidths) {
        if (character >= range.first && character <= range.last) {
            return range.width;
        }
    }
    return 1;
}

// How many bytes of `text` fit into `width` columns; `used` gets the columns that they take.
std::size_t BytesWithin(std::string_view text, int width, int& used) {
    used = 0;
    for (std::size_t end = 0; end < text.size();) {
        char32_t character = 0;
        const std::size_t length = std::max<std::size_t>(DecodeUtf8(text.substr(end), character), 1);
        if (used + CharacterWidth(character) > width) {
            return end;
        }
        used += CharacterWidth(character);
        end += length;
    }
    return text.size();
}

}  // namespace

void Print(std::string_view text) {
    hasPrinted |= !text.empty();
    errno = 0;
    CheckOutput(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void FlushOutput() {
    errno = 0;
    CheckOutput(std::fflush(stdout) == 0);
}

bool HasPrinted() {
    return hasPrinted;
}

void Complain(const std::string& text) {
    std::fflush(stdout);
    std::string readable;
    for (const std::string& line : SplitString(text, '\n')) {  // arguments and names of files may hold anything
        readable += (readable.empty() ? "zorvctl: " : "\n") + ReadableText(line);
    }
    std::fprintf(stderr, "%s\n", readable.c_str());
}

std::string ReadableText(std::string_view bytes, bool controls) {
    std::string text;
    while (!bytes.empty()) {
        const auto* const plain = std::find_if(bytes.begin(), bytes.end(), [](char c) { return c < ' ' || c > '~'; });
        text.append(bytes.begin(), plain);
        bytes.remove_prefix(static_cast<std::size_t>(plain - bytes.begin()));
        if (bytes.empty()) {
            break;
        }
        char32_t character = 0;
        const std::size_t length = DecodeUtf8(bytes, character);
        const std::string_view whole = bytes.substr(0, std::max<std::size_t>(length, 1));
        const bool control = controls && (character < 0x20 || (character >= 0x7F && character < 0xA0));
        if (length > 0 && !control) {
            text += whole;
        } else if (whole == "\n" || whole == "\r" || whole == "\t") {
            text += whole == "\n" ? "\\n" : whole == "\r" ? "\\r" : "\\t";
        } else {
            for (const char byte : whole) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\x%02X",
                              static_cast<unsigned>(static_cast<unsigned char>(byte)));
                text += escape;
            }
        }
        bytes.remove_prefix(whole.size());
    }
    return text;
}

int DisplayWidth(std::string_view text) {
    int width = 0;
    BytesWithin(text, static_cast<int>(text.size()) * 2, width);
    return width;
}

std::string FitTo(const std::string& text, int width, bool rightAligned) {
    int used = 0;
    std::string fitted = text;
    if (BytesWithin(text, width, used) < text.size()) {
        fitted = text.substr(0, BytesWithin(text, width - 1, used)) + "\u2026";
        ++used;
    }
    const std::string padding(static_cast<std::size_t>(width - used), ' ');
    return rightAligned ? padding + fitted : fitted + padding;
}

std::string Wrapped(const std::string& text, int indent, int width) {
    const int room = width - indent;
    if (width == 0 || room < 20) {  // a terminal too narrow for it breaks lines itself
        return text;
    }
    std::string wrapped, line;
    for (const std::string& word : SplitString(text, ' ')) {
        if (!line.empty() && DisplayWidth(line) + 1 + DisplayWidth(word) > room) {
            wrapped += line + "\n" + std::string(static_cast<std::size_t>(indent), ' ');
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return wrapped + line;
}

bool MayStyle() {
    const char *const no = std::getenv("NO_COLOR"), *const terminal = std::getenv("TERM");
    return (no == nullptr || *no == '\0') && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string LocalTimeText(double seconds) {
    constexpr double kEndOfCalendar = 32535129599;  // a day before the C libraries' end, for time zones
    const double within = std::fmax(0, std::fmin(seconds, kEndOfCalendar));
    const auto milliseconds = static_cast<std::int64_t>(std::floor(within * 1000));
    std::tm local{};
    platform::local_time(milliseconds / 1000, local);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(milliseconds % 1000));
    return text;
}

std::string DateText(std::int64_t seconds) {
    std::string text = LocalTimeText(static_cast<double>(seconds)).substr(0, 10);
    text[4] = text[7] = '/';
    return text;
}

std::string SpanText(std::int64_t seconds) {
    const std::int64_t minutes = (seconds + 59) / 60;
    const auto count = [](std::int64_t number, const char* unit) {
        return std::to_string(number) + unit + (number == 1 ? "" : "s");
    };
    return minutes < 120       ? count(minutes, " minute")
           : minutes < 48 * 60 ? count(minutes / 60, " hour")
                               : count(minutes / (24 * 60), " day");
}

std::string ReadWholeFile(const std::string& path, std::size_t most) {
    const platform::File file = platform::folder_exists(path) ? nullptr : platform::open_file(path, "rb");
    const std::string name = ReadableText(platform::native_path(path));
    Require(file != nullptr, name + (platform::folder_exists(path) ? " is a folder"
                                     : platform::file_exists(path) ? " cannot be opened: check who may read it"
                                                                   : " does not exist"));
    std::string bytes;
    char block[65536];
    while (const std::size_t count = std::fread(block, 1, std::min(sizeof block, most - bytes.size()), file.get())) {
        bytes.append(block, count);
    }
    Require(!std::ferror(file.get()), name + " cannot be read");
    return bytes;
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
    platform::File file = platform::open_file(path, "wb");
    Require(file != nullptr, path + " cannot be written: check that its folder exists and who may write there");
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (std::fclose(file.release()) != 0 || !written) {
        platform::remove_file(path);
        throw Failure{path + " cannot be written completely: is the disk full?"};
    }
}

void WriteIntoPlace(const std::string& path, std::string_view bytes) {
    WriteWholeFile(path + ".new", bytes);
    std::filesystem::rename(path + ".new", path);
}

void CheckMachine() {
    const std::string folder = platform::machine_folder();
    Require(
        folder.empty() || platform::folder_exists(folder),
        "there is no machine at " + folder + ": make one with `zorvctl machine init`, or name another in ZORV_MACHINE");
    const std::string problem = platform::machine_problem();
    Require(problem.empty(), problem);
}

std::string StandInMachine(const std::string& instead) {
    CheckMachine();
    std::string folder = platform::machine_folder();
    Require(!folder.empty(), std::string("on Windows ") + instead, kWrongUsage);
    return folder;
}

}  // namespace zorvalis
