// What every command of the tool uses: output, complaints, text that a terminal can show, whole files, the check that
// there is a machine. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zorvalis {

// Thrown to end a command: main prints the text and exits with the code. An empty text prints nothing, since the
// command has complained already.
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

// Thrown when the reader of the output has closed the pipe.
struct ClosedOutput {};

// Both throw ClosedOutput, or a Failure when the output cannot be written for another reason.
void Print(std::string_view text);
void FlushOutput();
bool HasPrinted();  // whether Print has been called with any text

// Prints "zorvctl: " and one line to the error output, after flushing what was printed so far.
void Complain(const std::string& text);

// Makes any bytes valid UTF-8: a byte that is not becomes "\xNN". With `controls`, control characters are escaped too:
// as "\n", "\r", "\t" or "\xNN".
std::string ReadableText(std::string_view bytes, bool controls = true);

// How many columns of a terminal a readable text takes: two for each East Asian wide character or picture, none for a
// combining mark.
int DisplayWidth(std::string_view text);

// A readable text in exactly `width` columns: padded with blanks, or cut and ended with an ellipsis.
std::string FitTo(const std::string& text, int width, bool rightAligned = false);

// The text broken at blanks so that it fits into `width` columns, with `indent` blanks before each line but the first,
// which stands behind as much already. A width of 0 breaks nothing.
std::string Wrapped(const std::string& text, int indent, int width);

// Whether escape sequences may be printed to a terminal: NO_COLOR and TERM=dumb forbid it.
bool MayStyle();

// Seconds since 1970 as local time, "2026-11-12 09:08:07.006". Times outside of the years 1970 to 3000 become the end
// of them that is nearer.
std::string LocalTimeText(double seconds);

// "2026/11/12" in local time.
std::string DateText(std::int64_t seconds);

// "23 minutes", "5 hours", "3 days".
std::string SpanText(std::int64_t seconds);

// Both throw a Failure that names the path and what to check.
// Of a longer file, `most` bytes.
std::string ReadWholeFile(const std::string& path, std::size_t most = SIZE_MAX);
// Deletes the file again when it cannot be written completely.
void WriteWholeFile(const std::string& path, std::string_view bytes);
// Renames a new file into place, so that nobody reads half of it.
void WriteIntoPlace(const std::string& path, std::string_view bytes);

// On Linux, throws a Failure that says what to do when there is no usable stand-in machine. Does nothing on Windows.
void CheckMachine();

// The stand-in machine's folder, which exists. On Windows it throws a Failure "on Windows " and `instead`, which names
// the command that serves there; sources for Linux alone give none.
std::string StandInMachine(const std::string& instead = "");

}  // namespace zorvalis
