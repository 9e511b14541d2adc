// main: checks the machine's folder and widens the arguments.
#include "platform/entry.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/linux/wide.h"
#include "platform/machine.h"

// The leak sanitizer's check, which it makes in exit(). We end by _exit, so it is called here. Null in other builds.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] void __lsan_do_leak_check();

namespace {

std::wstring widen(const char* argument) {
    if (auto text = platform::to_wide(argument)) {
        return *std::move(text);
    }
    std::wstring text;  // not UTF-8: each byte becomes the character of its number
    for (; *argument != '\0'; ++argument) {
        text += static_cast<wchar_t>(static_cast<unsigned char>(*argument));
    }
    return text;
}

// _exit instead of a return: pool threads may run for ever, and no destructor may take away what they use.
[[noreturn]] void end_process(int code) {
    std::fflush(nullptr);
    if (__lsan_do_leak_check != nullptr) {
        __lsan_do_leak_check();
    }
    ::_exit(code);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string problem = platform::machine_problem();
    if (!problem.empty()) {
        std::fprintf(stderr, "%s\n", problem.c_str());
        return 0;
    }
    std::vector<std::wstring> texts(static_cast<std::size_t>(argc));
    std::transform(argv, argv + argc, texts.begin(), widen);
    std::vector<const wchar_t*> arguments(texts.size() + 1);  // ends with a null pointer
    std::transform(texts.begin(), texts.end(), arguments.begin(), [](const auto& text) { return text.c_str(); });
    end_process(program_main(argc, arguments.data()));
}
