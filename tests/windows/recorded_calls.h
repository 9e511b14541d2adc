// Writes calls of system functions down, each with its arguments, and makes one of them fail. One thread at a time.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/windows/wide.h"
#include "support/import_hook.h"

using Calls = std::vector<std::string>;

constexpr DWORD kFailure = 12345;

inline Calls calls;
inline std::size_t failing = 0;  // the number of the call that fails, from 1; 0 for none

template <class Action>
Calls calls_of(Action action) {
    calls.clear();
    action();
    return std::exchange(calls, {});
}

inline std::string hex(std::uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(number));
    return text;
}

// An argument in hexadecimal; the text, or the first number, that a pointer leads to. Of real calls, whose handles are
// never the same, and of pointers to pointers, only what is null.
template <bool real, class Argument>
std::string shown(Argument argument) {
    std::uintptr_t number = std::uintptr_t(argument);
    if constexpr (std::is_pointer_v<Argument> || std::is_same_v<Argument, ULONG_PTR>) {
        using Target = std::remove_pointer_t<Argument>;
        if (number == 0 || real) {
            return number == 0 ? "null" : "*";
        }
        if constexpr (std::is_same_v<Argument, const wchar_t*> || std::is_same_v<Argument, unsigned short*>) {
            return platform::to_utf8(reinterpret_cast<const wchar_t*>(argument));
        } else if constexpr (std::is_same_v<Argument, const wchar_t**>) {
            return platform::to_utf8(argument[0]) + "," + platform::to_utf8(argument[1]);
        } else if constexpr (std::is_pointer_v<Target>) {
            return "*";
        }
        number = number < 99 ? number : *reinterpret_cast<DWORD*>(number);
    }
    return hex(number);
}

// Writes the call down, fails when it is its turn, and else makes the real call or gives the call's number as a handle.
template <bool real, class Result, class... Arguments, class Name>
auto recorder(Result (*function)(Arguments...), Name) {
    static Result (*const truth)(Arguments...) = real ? ImportHook::imported(Name{}(), function) : function;
    return [](Arguments... arguments) -> Result {
        constexpr bool kIsStatus = std::is_same_v<Result, LONG>;
        calls.push_back(Name{}());
        ((calls.back() += " " + shown<real>(arguments)), ...);
        if (calls.size() == failing) {
            ::SetLastError(kFailure);
            return Result(kIsStatus                                 ? kFailure
                          : std::is_same_v<Result, DWORD>           ? WAIT_FAILED
                          : calls.back().starts_with("CreateFileW") ? std::intptr_t(-1)
                                                                    : 0);
        }
        if constexpr (real) {
            const Result result = truth(arguments...);
            calls.back() += (result == Result(0)) == (kIsStatus || std::is_same_v<Result, DWORD>) ? "" : " failed";
            return result;
        }
        return Result(kIsStatus ? 0 : calls.size());
    };
}
#define RECORDER(real, function) ImportHook(#function, ::function, recorder<real>(::function, [] { return #function; }))
#define FAKE(function) RECORDER(false, function)
#define REAL(function) RECORDER(true, function)
