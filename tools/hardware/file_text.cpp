// Reads hardware.json, the machine's or else the one beside the library, and writes a new file that takes its place.
#include "file_text.h"

#include <cstdlib>

#include "file_place.h"

namespace zorvalis {
namespace {

constexpr std::size_t kLargest = std::size_t{1} << 20;

}  // namespace

FileText::FileText(Purpose purpose) {
    const auto find = [this](bool (*add)(Line&)) {
        path_.Clear();
        return add(path_) && path_.Add("hardware.json").whole() && FileExists(path_.c_str());
    };
    if (!find(AddMachineFolder) && !find(AddOwnFolder)) {
        return;
    }
    turn_ = TakeTurn(purpose, path_.c_str());
    std::FILE* const file = OpenFile(path_.c_str(), "rb");
    if (file != nullptr) {
        std::fseek(file, 0, SEEK_END);
        const long size = std::ftell(file);
        std::rewind(file);
        data_ = size >= 0 && static_cast<std::size_t>(size) <= kLargest
                    ? static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + 1))
                    : nullptr;
        size_ = data_ != nullptr ? std::fread(data_, 1, static_cast<std::size_t>(size), file) : 0;
        std::fclose(file);
    }
    if (purpose == Purpose::read) {
        EndTurn(turn_);
        turn_ = -1;
    }
}

FileText::~FileText() {
    EndTurn(turn_);
    std::free(data_);
}

bool FileText::Replace(std::initializer_list<std::string_view> pieces) {
    Line fresh{path_.view(), ".new"};
    std::FILE* const file = turn_ != -1 && fresh.whole() ? OpenFile(fresh.c_str(), "wb") : nullptr;
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
