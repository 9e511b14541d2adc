// Reads hardware.json, the machine's or else the one beside the library, and writes a new file that takes its place.
#include "file_text.h"

#include <cstdlib>

#include "file_place.h"

namespace zorvalis {

FileText::FileText(Purpose purpose) {
    for (bool (*const add)(Line&) : {AddMachineFolder, AddOwnFolder}) {
        path_.Clear();
        if (!add(path_) || !path_.Add("hardware.json").whole()) {
            continue;
        }
        turn_ = TakeTurn(purpose, path_.c_str());
        const bool found = ReadWhole(path_.c_str(), data_, size_);
        if (!found || purpose == Purpose::read) {
            EndTurn(turn_);
            turn_ = -1;
        }
        if (found) {
            return;
        }
    }
}

FileText::~FileText() {
    EndTurn(turn_);
    std::free(data_);
}

bool FileText::Replace(std::initializer_list<std::string_view> pieces) {
    Line fresh{path_.view(), ".new"};
    std::FILE* const file = turn_ != -1 && fresh.whole() ? Create(fresh.c_str()) : nullptr;
    if (file == nullptr) {
        return false;
    }
    for (const std::string_view piece : pieces) {
        std::fwrite(piece.data(), 1, piece.size(), file);
    }
    const bool whole = std::ferror(file) == 0;
    return std::fclose(file) == 0 && whole && MoveInto(fresh.c_str(), path_.c_str());
}

}  // namespace zorvalis
