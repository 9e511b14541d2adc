#include "platform/linux/power_settings.h"

#include <charconv>

#include "platform/linux/machine_json.h"
#include "platform/stand_in/events.h"

namespace platform {
namespace {

template <class Number>
bool parse_hexadecimal(std::string_view digits, Number& number) {
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, number, 16);
    return error == std::errc() && rest == end;
}

}  // namespace

std::optional<Guid> parse_guid(std::string_view text) {
    constexpr std::size_t kLength = 36;
    if (text.size() != kLength || text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') {
        return std::nullopt;
    }
    Guid guid{};
    bool sound = parse_hexadecimal(text.substr(0, 8), guid.data1) && parse_hexadecimal(text.substr(9, 4), guid.data2) &&
                 parse_hexadecimal(text.substr(14, 4), guid.data3);
    for (std::size_t i = 0; i < sizeof guid.data4; ++i) {
        sound = sound && parse_hexadecimal(text.substr(i < 2 ? 19 + 2 * i : 20 + 2 * i, 2), guid.data4[i]);
    }
    return sound ? std::optional(guid) : std::nullopt;
}

std::optional<std::uint32_t> present_power_state(const Guid& setting) {
    const auto json = read_machine_json(kPowerFile);
    for (const PowerSettingName& known : kPowerSettings) {
        if (json && *parse_guid(known.guid) == setting) {
            const auto state = json->find(known.name);
            return state != json->end() && state->is_number_unsigned() && state->get<std::uint64_t>() <= UINT32_MAX
                       ? std::optional(state->get<std::uint32_t>())
                       : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace platform
