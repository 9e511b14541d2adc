#include "fleet_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace fleet {
namespace {

constexpr double kWidth = 900, kLeft = 64, kRight = 32, kPanel = 250, kTop = 64, kPlot = 150;

struct Curve {
    const char* style;
    const char* name;
    std::vector<double> values;  // requests a second, evenly spread over the axis
};

struct Mark {
    double at;  // part of the axis
    std::string text;
};

std::string Format(const char* format, auto... values) {
    char text[200];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

// Means over `span` seconds.
std::vector<double> Means(const std::vector<std::uint32_t>& values, std::int64_t begin, std::int64_t end,
                          std::int64_t span) {
    std::vector<double> means;
    for (std::int64_t at = begin; at < end; at += span) {
        double sum = 0;
        for (std::int64_t second = at; second < at + span; ++second) {
            sum += values[static_cast<std::size_t>(second)];
        }
        means.push_back(sum / static_cast<double>(span));
    }
    return means;
}

// The next number that four lines divide well.
double RoundUp(double value) {
    const double power = std::pow(10, std::floor(std::log10(std::max(value, 1e-3))));
    for (const double factor : {1.0, 1.2, 1.6, 2.0, 2.4, 3.2, 4.0, 6.0, 8.0}) {
        if (factor * power >= value) {
            return factor * power;
        }
    }
    return 10 * power;
}

std::string Panel(int number, const std::string& title, const std::vector<Mark>& marks,
                  const std::vector<Curve>& curves) {
    double most = 0;
    for (const Curve& curve : curves) {
        most = std::max(most, *std::max_element(curve.values.begin(), curve.values.end()));
    }
    const double scale = RoundUp(most), width = kWidth - kLeft - kRight, bottom = kTop + kPlot;
    std::string text =
        Format("<g transform=\"translate(0 %g)\">\n<text class=\"title\" x=\"%g\" y=\"24\">", number * kPanel, kLeft) +
        title + "</text>\n";
    double key = kLeft;
    for (const Curve& curve : curves) {
        text += Format(
            "<path class=\"%s\" d=\"M%g 42h22\"/><text x=\"%g\" y=\"46\">%s</text>\n", curve.style, key, key + 28,
            Format("%s, at most %.0f", curve.name, *std::max_element(curve.values.begin(), curve.values.end()))
                .c_str());
        key += 300;
    }
    for (int line = 0; line <= 4; ++line) {
        const double y = bottom - kPlot * line / 4;
        text += Format("<path class=\"grid\" d=\"M%g %gH%g\"/><text class=\"end\" x=\"%g\" y=\"%g\">%g</text>\n", kLeft,
                       y, kWidth - kRight, kLeft - 8, y + 4, scale * line / 4);
    }
    for (const Mark& mark : marks) {
        text += Format("<text class=\"middle\" x=\"%.1f\" y=\"%g\">%s</text>\n", kLeft + width * mark.at, bottom + 18,
                       mark.text.c_str());
    }
    for (const Curve& curve : curves) {
        text += Format("<path class=\"%s\" d=\"", curve.style);
        const double step = width / static_cast<double>(curve.values.size());
        for (std::size_t i = 0; i < curve.values.size(); ++i) {
            text += Format(i == 0 ? "M%.1f %.1f" : " %.1f %.1f", kLeft + step * (static_cast<double>(i) + .5),
                           bottom - kPlot * curve.values[i] / scale);
        }
        text += "\"/>\n";
    }
    return text + "</g>\n";
}

}  // namespace

void Draw(const std::filesystem::path& file, const Load& asItIs, const Load& allAtOnce, const Load& afterOutage,
          int machines) {
    const auto end = static_cast<std::int64_t>(asItIs.requests.size());
    std::vector<Mark> days, tenDays, hours, minutes;
    for (int day = 1; day * kDay <= end; day += 2) {
        days.push_back({(day - .5) * kDay / static_cast<double>(end), std::to_string(day)});
    }
    for (int day = 1; day <= 10; ++day) {
        tenDays.push_back({(day - .5) / 10, std::to_string(day)});
    }
    for (int hour = 0; hour <= 24; hour += 3) {
        hours.push_back({hour / 24.0, Format("%02d:00", hour)});
    }
    // The mean of the days after the tenth, on which hardly a file goes up.
    std::vector<double> day(24 * 12);
    for (std::int64_t begin = 10 * kDay; begin < end; begin += kDay) {
        const std::vector<double> means = Means(asItIs.requests, begin, begin + kDay, 300);
        for (std::size_t i = 0; i < day.size(); ++i) {
            day[i] += means[i] / static_cast<double>(end / kDay - 10);
        }
    }
    for (int minute = 0; minute <= 90; minute += 15) {
        minutes.push_back({minute / 90.0, Format("00:%02d", minute)});
    }
    minutes[4].text = "01:00", minutes[5].text = "01:15", minutes[6].text = "01:30";
    std::vector<Curve> jitter = {{"a", "as it is", {}}, {"b", "without the jitter", {}}};
    // The midnight with most requests without the jitter.
    std::int64_t busiest = 0;
    double most = 0;
    for (std::int64_t begin = 0; begin < end; begin += kDay) {
        if (const double here = Means(allAtOnce.requests, begin, begin + 300, 300)[0]; here > most) {
            most = here, busiest = begin;
        }
    }
    jitter[0].values = Means(asItIs.requests, busiest, busiest + 5400, 60);
    jitter[1].values = Means(allAtOnce.requests, busiest, busiest + 5400, 60);
    std::string text = Format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %g %g\" role=\"img\" aria-label=\"Requests a second "
        "at "
        "the server of a fleet\">\n",
        kWidth, 4 * kPanel);
    text += R"(<style>
svg{background:#fff;font:13px sans-serif}text{fill:#333}.title{font-weight:bold;font-size:15px;fill:#111}
.end{text-anchor:end}.middle{text-anchor:middle}path{fill:none;stroke-width:1.6;stroke-linejoin:round}
.grid{stroke:#ddd;stroke-width:1}.a{stroke:#0b62a4}.b{stroke:#c4471f}
@media(prefers-color-scheme:dark){svg{background:#16181c}text{fill:#c8ccd2}.title{fill:#f0f2f5}.grid{stroke:#34383f}
.a{stroke:#63b3f5}.b{stroke:#ff9166}}
</style>
)";
    text += Panel(0, "Requests a second over 30 days, " + std::to_string(machines) + " machines; means of an hour",
                  days, {{"a", "answered", Means(asItIs.requests, 0, end, 3600)}});
    text += Panel(1, "A day on which hardly a file goes up; means of five minutes, of 20 days", hours,
                  {{"a", "answered", day}});
    text += Panel(2, "The busiest midnight; means of a minute", minutes, jitter);
    text += Panel(3, "The server away for the busiest day; means of an hour", tenDays,
                  {{"a", "answered", Means(afterOutage.requests, 0, 10 * kDay, 3600)},
                   {"b", "tries while it is away", Means(afterOutage.refused, 0, 10 * kDay, 3600)}});
    std::ofstream out(file, std::ios::binary);
    out << text << "</svg>\n";
    if (!out.flush()) {
        std::fprintf(stderr, "fleet: %s cannot be written\n", file.c_str());
        std::exit(1);
    }
}

}  // namespace fleet
