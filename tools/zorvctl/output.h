// What every command of the tool works with: its output, its complaints, text made fit for a person's eyes, files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zorvalis {

// Ends a command. An empty text means that everything has been said already.
struct Failure {
    std::string text;
    int exitCode = 1;
};

constexpr int kWrongUsage = 2;

inline void Require(bool holds, const std::string& otherwise, int exitCode = 1) {
    if (!holds) {
        throw Failure{otherwise, exitCode};
    }
}

// Nobody reads the output any more.
struct ClosedOutput {};

// Both throw ClosedOutput, or a Failure when the output cannot be written.
void Print(std::string_view text);
void FlushOutput();

// One line on the error output, behind what was printed so far.
void Complain(const std::string& text);

// Bytes as valid UTF-8: a byte that belongs to no character becomes "\xNN". With `controls`, so do control characters,
// but for "\n", "\r", "\t".
std::string ReadableText(std::string_view bytes, bool controls = true);

// Columns on a terminal of a readable text: two for East Asian wide characters and pictures, none for combining marks.
int DisplayWidth(std::string_view text);

// A readable text in exactly `width` columns: padded, or cut with an ellipsis.
std::string FitTo(const std::string& text, int width, bool rightAligned = false);

// "2026-11-12 09:08:07.006" for seconds since 1970.
std::string LocalTimeText(double seconds);

std::string ReadWholeFile(const std::string& path);
// Leaves no file behind when it cannot be written completely.
void WriteWholeFile(const std::string& path, std::string_view bytes);

// On Linux fails, in words that say what to do, when there is no stand-in machine that could be used.
void CheckMachine();

// The stand-in machine's folder. On Windows a failure that ends in `instead`, what serves in its place there; sources
// that only Linux compiles give none.
std::string StandInMachine(const char* instead = "");

}  // namespace zorvalis
