// hardware.json as a text in memory, and its replacement. A reader gets the file before or after another process's
// change, never half of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "line.h"

namespace zorvalis {

class FileText {
public:
    // With `change`, all other writers in every process wait until the object ends.
    enum class Purpose { read, change };

    explicit FileText(Purpose purpose);
    ~FileText();
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;

    // Empty when there is no file, or it has more than a megabyte. Valid while the object lives.
    std::string_view text() const { return {data_, size_}; }

    // Replaces the file by one of these pieces, which may point into `text`. Only with `change`; false on failure.
    bool Replace(std::initializer_list<std::string_view> pieces);

private:
    Line path_;
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::intptr_t turn_ = -1;
};

}  // namespace zorvalis
