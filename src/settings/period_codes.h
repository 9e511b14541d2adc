// The period codes of the setting file: the seconds that each stands for, and the number that timed samples carry in
// their column `freq`.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zorvalis {

struct PeriodCode {
    std::string_view code;
    std::int32_t seconds;
    std::int32_t frequency;  // 0: the code has no number
};

constexpr std::array<PeriodCode, 11> kPeriodCodes = {{
    {"m5", 300, 1},
    {"m10", 600, 2},
    {"m15", 900, 3},
    {"m20", 1200, 4},
    {"m25", 1500, 5},
    {"m30", 1800, 6},
    {"m60", 3600, 7},
    {"d1", 86400, 8},
    {"d7", 604800, 0},  // Kept: a valid period without a number of its own, so its samples carry 0
    {"d30", 2592000, 9},
    {"CheckSNForZPRP", 86400, 0},  // product activation's job; no setting file has it
}};

// 0 for a text that is no period code.
constexpr std::int32_t PeriodSeconds(std::string_view code) {
    for (const PeriodCode& one : kPeriodCodes) {
        if (one.code == code) {
            return one.seconds;
        }
    }
    return 0;
}

}  // namespace zorvalis
