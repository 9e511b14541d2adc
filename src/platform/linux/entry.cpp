#include "platform/entry.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/linux/machine_file.h"
#include "platform/machine.h"

namespace {

std::wstring widen(const char* argument) {
    if (auto text = platform::to_wide(argument)) {
        return *std::move(text);
    }
    std::wstring text;  // no UTF-8: each byte as it is
    for (; *argument != '\0'; ++argument) {
        text += static_cast<wchar_t>(static_cast<unsigned char>(*argument));
    }
    return text;
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
    std::vector<const wchar_t*> arguments(texts.size() + 1);  // with a null at their end
    std::transform(texts.begin(), texts.end(), arguments.begin(), [](const auto& text) { return text.c_str(); });
    return program_main(argc, arguments.data());
}
