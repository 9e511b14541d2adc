// What zorvsetup tells: lines on the standard output, which also go into a log beside Windows' own, and failures with
// Windows' words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zorvalis {

// Ends a command: the program's exit code, a Windows error number, and a sentence.
struct Failure {
    std::uint32_t code;
    std::string text;
};

// The folder of the log and of the notes (notes.h), with a closing backslash. Only administrators may write in it.
std::wstring LogFolder();

// One line. Where the log cannot be written, as by a user without rights, it goes to the standard output alone.
void Say(const std::string& line);

// "Access is denied. (error 5)", in the language of Windows.
std::string ErrorText(std::uint32_t code);

// A Failure of "WHAT: Windows' words". Without a code it is that of the call that has just failed: `what` must not be
// made by calls that change it, as conversions do. The last one puts a path before its words.
[[noreturn]] void Fail(const std::string& what, std::uint32_t code);
[[noreturn]] void Fail(const std::string& what);
[[noreturn]] void Fail(const std::wstring& path, const char* what);

// Steps that are all made, also behind one that failed.
class Attempts {
public:
    void Make(const std::function<void()>& step);
    void Finish() const;  // raises the first Failure; the words of the others have been told

private:
    std::optional<Failure> first_;
};

}  // namespace zorvalis
