// One executable, started by the service manager, by an administrator, or by the scheduled tasks. Only the first
// argument counts; the exit code is 0 on every path.
#include <array>
#include <cstdio>
#include <cwctype>

#include "platform/entry.h"
#include "service/passes.h"

namespace zorvalis {
namespace {

bool EqualsIgnoringCase(const wchar_t* a, const wchar_t* b) {
    for (; *a != L'\0' && std::towlower(*a) == std::towlower(*b); ++a, ++b) {
    }
    return *a == L'\0' && *b == L'\0';
}

void Install() {
    std::printf("-install: this build has no service to install yet\n");
}

void Remove() {
    std::printf("-remove: this build has no service to remove yet\n");
}

void RunService() {
    std::printf("This build has no service yet; -j0 runs one pass.\n");
}

struct Option {
    const wchar_t* word;
    void (*run)();
};

constexpr std::array<Option, 4> kOptions = {{
    {L"install", Install},
    {L"remove", Remove},
    {L"j0", RunJob0},
    {L"j1", RunJob1},
}};

}  // namespace
}  // namespace zorvalis

int program_main(int argc, const wchar_t* const* argv) {
    using namespace zorvalis;
    if (argc < 2 || (argv[1][0] != L'-' && argv[1][0] != L'/')) {
        RunService();
        return 0;
    }
    for (const Option& option : kOptions) {
        if (EqualsIgnoringCase(argv[1] + 1, option.word)) {
            option.run();
            break;
        }
    }
    return 0;
}
