// Reading of the host's small files, and the search through both tables of reads.
#include "host_linux.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "host.h"

namespace zorvalis {

bool Host::Read(Pieces path, Line& text) const {
    Line full = Path(path);
    std::array<char, 4000> data;
    const int file = open(full.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const ssize_t count = file >= 0 ? read(file, data.data(), data.size()) : 0;
    if (file >= 0) {
        close(file);
    }
    std::string_view found(data.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    while (!found.empty() && static_cast<unsigned char>(found.back()) <= ' ') {
        found.remove_suffix(1);
    }
    text.Clear();
    text.Add(found);
    return !found.empty();
}

bool Host::Number(Pieces path, std::int64_t& number) const {
    Line text;
    if (!Read(path, text)) {
        return false;
    }
    char* end = nullptr;
    number = std::strtoll(text.c_str(), &end, 10);
    return *end == '\0';
}

bool Host::Is(Pieces path, std::string_view word) const {
    Line text;
    return Read(path, text) && text.view() == word;
}

bool Host::Exists(Pieces path) const {
    Line full = Path(path);
    return access(full.c_str(), F_OK) == 0;
}

bool Host::Field(Pieces path, std::string_view key, Line& answer) const {
    constexpr std::string_view kAround = " \t:\"";
    Line whole;
    Read(path, whole);
    std::string_view text = whole.view();
    while (!text.empty()) {
        std::string_view line(text.data(), std::min(text.find('\n'), text.size()));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!BeginsWith(line, key)) {
            continue;
        }
        line.remove_prefix(key.size());
        while (!line.empty() && kAround.find(line.front()) != std::string_view::npos) {
            line.remove_prefix(1);
        }
        while (!line.empty() && kAround.find(line.back()) != std::string_view::npos) {
            line.remove_suffix(1);
        }
        answer.Add(line);
        return !line.empty();
    }
    return false;
}

Line Host::Path(Pieces path) const {
    Line full{root_};
    for (const std::string_view piece : path) {
        full.Add(piece);
    }
    return full;
}

Line& NextItem(Line& list) {
    return list.view().empty() ? list : list.Add(", ");
}

bool AskHost(const char* root, std::string_view name, Line& answer) {
    for (const std::span<const HostRead> reads : {IdentityReads(), SensorReads()}) {
        for (const HostRead& one : reads) {
            if (one.name == name) {
                return one.read(Host(root), answer);
            }
        }
    }
    return false;
}

}  // namespace zorvalis
