#include "part.h"

#include <windows.h>

#include <exception>

#include "kit.h"
#include "process.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kOption[] = "--part";

const Part*& First() {
    static const Part* first = nullptr;
    return first;
}

}  // namespace

Part::Part(const char* partName, Run* partRun) : name(partName), run(partRun), next(First()) {
    First() = this;
}

void Say(const std::string& line) {
    // A service has no stdout of the C runtime, but can be given this handle.
    const std::string text = line + "\n";
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::string PartCommand(const std::string& name, const std::vector<std::string>& arguments,
                        const std::string& program) {
    std::string command =
        Quoted(program.empty() ? KitFolder() + "\\zorv-acceptance.exe" : program) + " " + kOption + " " + name;
    for (const std::string& argument : arguments) {
        command += " " + Quoted(argument);
    }
    return command;
}

bool RunPart(const std::vector<std::string>& words, int& code) {
    if (words.size() < 2 || words[0] != kOption) {
        return false;
    }
    code = 2;
    for (const Part* part = First(); part != nullptr; part = part->next) {
        if (words[1] == part->name) {
            try {
                code = part->run({words.begin() + 2, words.end()});
            } catch (const std::exception& exception) {
                Say(std::string("The part ") + part->name + " broke off: " + exception.what());
            }
        }
    }
    return true;
}

}  // namespace zorvalis::acceptance
