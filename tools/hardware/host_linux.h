// The Linux host's files, as the reads of its two subjects see them: what it is, and what it measures.
#pragma once

#include <dirent.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <span>
#include <string_view>

#include "line.h"

namespace zorvalis {

// A path in pieces.
using Pieces = std::initializer_list<std::string_view>;

class Host {
public:
    // `root` is put before each path.
    explicit Host(const char* root) : root_(root) {}

    // A short file without its closing blanks; false when there is nothing in it.
    bool Read(Pieces path, Line& text) const;
    bool Number(Pieces path, std::int64_t& number) const;
    bool Is(Pieces path, std::string_view word) const;
    bool Exists(Pieces path) const;

    // The rest of the first line that begins with `key`, without the blanks, colons and quotes around it.
    bool Field(Pieces path, std::string_view key, Line& answer) const;

    // Calls `visit` with the names in a folder, in their order, until it returns true; whether it did.
    template <class Visit>
    bool Any(Pieces folder, Visit visit) const {
        Line full = Path(folder);
        dirent** names = nullptr;
        const int count = scandir(full.c_str(), &names, nullptr, alphasort);
        bool stop = false;
        for (int i = 0; i < count; ++i) {
            const std::string_view name = names[i]->d_name;
            stop = stop || (name[0] != '.' && visit(name));
            std::free(names[i]);
        }
        std::free(names);
        return stop;
    }

private:
    Line Path(Pieces path) const;

    std::string_view root_;
};

// Items of a list are parted by commas.
Line& NextItem(Line& list);

// How the host answers for an export: adds bare words or digits, or returns false.
struct HostRead {
    std::string_view name;
    bool (*read)(const Host&, Line&);
};

std::span<const HostRead> IdentityReads();
std::span<const HostRead> SensorReads();

}  // namespace zorvalis
