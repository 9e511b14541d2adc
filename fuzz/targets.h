// The kinds of input from outside that are fuzzed, one function for each. A fuzzer calls one of them with what it makes
// up, a test all of them with the inputs in corpus/. The result tells how the input ended. What must not happen ends
// the process (Finding) or leaves as an exception.
#pragma once

#include <cstdint>
#include <string_view>

// The result when the product threw an error that it throws for bad input.
constexpr std::int32_t kRaised = -9;

// `bytes` as the stored setting file, then as the server's answer to the query for settings, then as the document in
// such an answer. The result is that of the last download: 0, -1 for a refusal, or kRaised.
std::int32_t FuzzSettingDocument(std::string_view bytes);

// `bytes` as what the server answers to the calls for one file, in order, with a line "--" between them. An answer
// whose first line is "!" and a number has that status, all others 200; after the last one the connection fails. The
// result is the file's UploadStatus, or kRaised.
std::int32_t FuzzServerAnswers(std::string_view bytes);

// `bytes` as the lines of a client of the stand-in machine's local endpoint, one call after the other. The result is
// the error code of the last answer, 0 for none. Linux only.
std::int32_t FuzzRpcFrames(std::string_view bytes);

// `bytes` as a client's call in JSON. The result is 1 for success, 0 for an error, -1 for no answer, or kRaised.
std::int32_t FuzzClientCall(std::string_view bytes);
