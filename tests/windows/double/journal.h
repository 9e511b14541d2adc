// The library of doubles lives in the process of the unmodified executable and stands in for what Wine only stubs. This
// is what its parts share: the journal beside the library, and the steps that a test makes fail. From any thread.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include <string>

namespace doubles {

// Writes one line into journal.txt and wakes the test that waits for it.
void write(const std::string& line);

// Writes the step and its arguments as a line. The result is the failure that fail.txt holds for it ("step 80070005" on
// a line of its own), else S_OK. Both are for the test to write, at any time.
HRESULT step(const std::string& name, const std::string& arguments = {});

// Whole files beside the library.
std::wstring beside(const wchar_t* name);
std::string read_file(const wchar_t* name);
void write_file(const wchar_t* name, const std::string& text);

std::string text(const wchar_t* wide);  // "null" for a null
std::string text(const VARIANT& value);
std::string text(const GUID& guid);
std::string number(long long value, const char* format = "%lld");

}  // namespace doubles
