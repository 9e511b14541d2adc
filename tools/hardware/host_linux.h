// The Linux host's files under /sys, /proc and /etc, and the two tables that answer exports from them: what the host is
// (host_identity_linux.cpp), and what it measures (host_sensors_linux.cpp).
#pragma once

#include <dirent.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <span>
#include <string_view>

#include "line.h"

namespace zorvalis {

// A path in pieces, which are joined as they are.
using Pieces = std::initializer_list<std::string_view>;

class Host {
public:
    // `root` is put before each path.
    explicit Host(const char* root) : root_(root) {}

    // The first 4000 bytes of a file, without blanks at the end; false when it is missing or empty.
    bool Read(Pieces path, Line& text) const;
    bool Number(Pieces path, std::int64_t& number) const;
    bool Is(Pieces path, std::string_view word) const;
    bool Exists(Pieces path) const;

    // Adds the rest of the first line that begins with `key`, without blanks, colons and quotes around it.
    bool Field(Pieces path, std::string_view key, Line& answer) const;

    // Calls `visit` with each name in the folder, sorted, until it returns true; returns whether it did.
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

// Adds a comma when the list has an item already.
Line& NextItem(Line& list);

// How the host answers for the export `name`: `read` adds plain words or digits, or returns false.
struct HostRead {
    std::string_view name;
    bool (*read)(const Host&, Line&);
};

std::span<const HostRead> IdentityReads();
std::span<const HostRead> SensorReads();

}  // namespace zorvalis
