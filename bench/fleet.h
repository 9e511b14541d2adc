// A fleet of machines that live through days by the rules of the core, and what reaches their server.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace fleet {

inline constexpr std::int64_t kDay = 86400;

// What the machines do by: the setting file's values, and the sizes of database files.
struct World {
    std::array<std::int32_t, 5> periods{};  // in seconds, in the order of kTimerNames
    std::int32_t pauseDays = 0, months = 0;
    // By class (0 to 2: O, E, W) and rows in each of its tables: the bytes of a file when it is sent.
    std::array<std::vector<std::int64_t>, 3> fileSizes;
};

struct Scenario {
    const char* name;
    int spreadMinutes;         // the jitter: in how many minutes after midnight a task that was put off may start
    std::int64_t zone;         // seconds that the machines' clocks are ahead of UTC
    std::int64_t outageBegin;  // in seconds after the first day shown; the server cannot be reached
    std::int64_t outageEnd;
};

// What came to the server, by the second since the first day shown began.
struct Load {
    explicit Load(int days) : requests(static_cast<std::size_t>(days * kDay)), bytes(requests), refused(requests) {}

    std::vector<std::uint32_t> requests;  // answered ones, each a connection of its own
    std::vector<std::uint32_t> bytes;     // both directions, TLS included
    std::vector<std::uint32_t> refused;   // tries while the server could not be reached
    // Sums of all of it.
    std::uint64_t queries = 0, files = 0, chunks = 0, fileBytes = 0, givenUp = 0;
    std::uint64_t awakeAtMidnight = 0;  // machines on at the first midnight shown
};

// Lives through `warmUp` days, in which the machines start for the first time, and then those of the load. `first` is
// midnight UTC of the first day shown. The same every time.
Load Live(const World& world, const Scenario& scenario, int machines, std::int64_t first, int warmUp, int days);

}  // namespace fleet
