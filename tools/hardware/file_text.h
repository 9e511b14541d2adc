// The text of hardware.json, read as a whole; one file for each operating system. A reader sees the file before or
// after another process's change, never in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace zorvalis {

class FileText {
public:
    // `change` keeps all other writers out, in every process, until the object ends.
    enum class Purpose { read, change };

    explicit FileText(Purpose purpose);
    ~FileText();
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;

    // Empty when there is no file, or one of more than a megabyte.
    std::string_view text() const { return {data_, size_}; }

    // Puts a new file of these pieces in the place of the one that was read; false when that fails.
    bool Replace(std::initializer_list<std::string_view> pieces);

private:
    static constexpr std::size_t kLargest = std::size_t{1} << 20;

    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::intptr_t lock_ = -1;
};

}  // namespace zorvalis
