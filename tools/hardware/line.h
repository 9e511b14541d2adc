// A text of at most 4095 bytes on the stack. The stand-in library uses no C++ object that allocates or throws: it is
// loaded and freed some fifty times in a pass, and a C++ runtime inside it would leave memory behind each time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace zorvalis {

class Line {
public:
    Line() = default;
    Line(std::initializer_list<std::string_view> pieces) {
        for (const std::string_view piece : pieces) {
            Add(piece);
        }
    }

    // A piece that does not fit is dropped, and `whole` is false from then on.
    Line& Add(std::string_view piece) {
        if (piece.size() > data_.size() - 1 - size_) {
            whole_ = false;
        } else if (!piece.empty()) {
            std::memcpy(data_.data() + size_, piece.data(), piece.size());
            size_ += piece.size();
        }
        return *this;
    }

    Line& Add(std::int64_t number) {
        std::array<char, 24> digits;
        std::size_t first = digits.size();
        std::uint64_t rest = number < 0 ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
        do {
            digits[--first] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (number < 0) {
            digits[--first] = '-';
        }
        return Add(std::string_view(digits.data() + first, digits.size() - first));
    }

    void Clear() {
        size_ = 0;
        whole_ = true;
    }

    bool whole() const { return whole_; }
    std::string_view view() const { return {data_.data(), size_}; }
    const char* c_str() {
        data_[size_] = '\0';
        return data_.data();
    }

private:
    std::array<char, 4096> data_;  // not initialised beyond size_
    std::size_t size_ = 0;
    bool whole_ = true;
};

// Used instead of starts_with and ends_with: in unoptimised code those call functions that can throw.
inline bool BeginsWith(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && std::string_view(text.data(), start.size()) == start;
}

inline bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && std::string_view(text.data() + text.size() - end.size(), end.size()) == end;
}

}  // namespace zorvalis
