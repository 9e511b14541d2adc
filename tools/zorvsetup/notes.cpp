#include "notes.h"

#include <windows.h>

#include <string>

#include "platform/files.h"
#include "platform/text.h"
#include "report.h"

namespace zorvalis {
namespace {

constexpr wchar_t kFile[] = L"Zorvalis-setup.undo";

std::string NotesFile() {
    return platform::to_utf8(LogFolder() + kFile);
}

}  // namespace

Notes::Notes() {
    const platform::File file = platform::open_file(NotesFile(), "rb");
    if (file == nullptr) {
        return;
    }
    std::string text(65536, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    try {
        all_ = ParseJson(text);
    } catch (const std::exception&) {
    }
    if (!all_.is_object()) {
        Say("the notes of an earlier installation cannot be read, and are not used: " + NotesFile());
        all_ = Json::object();
    }
}

void Notes::Add(const char* name, const Json& found) {
    if (Has(name)) {
        return;
    }
    all_[name] = found;
    if (!platform::replace_text(NotesFile(), DumpJson(all_))) {
        Fail(LogFolder() + kFile, "cannot be written: what was found cannot be noted, so nothing is changed");
    }
}

void Notes::Clear() {
    all_ = Json::object();
    if (platform::file_exists(NotesFile()) && !platform::remove_file(NotesFile())) {
        Say("cannot be deleted: " + NotesFile());
    }
}

}  // namespace zorvalis
