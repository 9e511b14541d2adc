// The inputs from outside that are fuzzed, one function for each; a fuzzer calls one of them, a test all with the kept
// inputs. An input's result tells how it ended. What must not happen ends the process or passes as an exception.
#pragma once

#include <cstdint>
#include <string_view>

// An error was raised that the system raises for such an input.
constexpr std::int32_t kRaised = -9;

// `bytes` as the stored setting file, as the answer to a query for settings, and as the document within such an answer.
// The result is that of the last.
std::int32_t FuzzSettingDocument(std::string_view bytes);

// `bytes` as what the server answers to one file's calls, in order, with a line "--" between them. An answer whose
// first line is "!" and a status has that status, all others 200; after the last the connection is lost.
std::int32_t FuzzServerAnswers(std::string_view bytes);

// `bytes` as the lines of a client of the stand-in machine's local endpoint, one call after the other. The result is
// the code of the last answer, 0 for a result. Linux only.
std::int32_t FuzzRpcFrames(std::string_view bytes);

// `bytes` as a client's call in JSON: 1 and 0 for its success and its failure, -1 for no answer.
std::int32_t FuzzClientCall(std::string_view bytes);
