// The library of doubles lives in the process of the unmodified executable and stands in for what Wine only stubs. This
// is what its parts share: the journal beside the library, and the steps that a test makes fail. From any thread.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include <string>

namespace doubles {

// Writes one line into journal.txt and wakes the test that waits for it.
void write(const std::string& line);

// What fail.txt holds for a step ("step 80070005" on a line of its own), else S_OK. The test writes it at any time.
HRESULT failure(const std::string& name);

// Writes the step and its arguments, which begin with a blank, as a line; then the same.
HRESULT step(const std::string& name, const std::string& arguments = {});

std::string text(const wchar_t* wide);  // "null" for a null
std::string text(const GUID& guid);
std::string number(long long value, const char* format = " %lld");

// An argument of a step, with a blank before it.
std::string shown(const wchar_t* text);
std::string shown(const VARIANT& value);
std::string shown(const void* object);  // whether there is one
inline std::string shown(long long value) {
    return number(value);
}
template <class Type>
std::string shown(Type**) {  // a result's place
    return {};
}

}  // namespace doubles
