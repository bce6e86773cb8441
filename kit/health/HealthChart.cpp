#include "kit/health/HealthChart.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace brimstell {

namespace {

// Eighths of a cell, empty to full.
const char* const blocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

std::string dayText(const quorv::Calendar& calendar, double t) { return calendar.shortText(t).substr(0, 10); }

}  // namespace

std::vector<std::string> HealthChart::lines(const std::vector<HealthPoint>& all, const quorv::Calendar& calendar,
                                            std::size_t columns, int rows) {
    if (all.size() < 2) return {tooFew};
    rows = std::max(rows, 1);
    const auto first = all.size() > columns ? all.end() - static_cast<std::ptrdiff_t>(columns) : all.begin();
    const std::vector<HealthPoint> points(first, all.end());
    double lowest = 1.0;
    for (const auto& p : points) lowest = std::min(lowest, p.health);
    const double bottom = std::min(0.8, std::floor(std::max(lowest, 0.0) * 20) / 20);
    const int levels = rows * 8;

    std::vector<std::string> out;
    for (int row = rows - 1; row >= 0; --row) {
        const double at = bottom + (1.0 - bottom) * (row + 1) / rows;
        std::string line = row == rows - 1 || row == 0 ? fmt::format("{:>4}% │", std::lround((row == 0 ? bottom : at) * 100)) : "      │";
        for (const auto& p : points) {
            const double share = std::clamp((p.health - bottom) / (1.0 - bottom), 0.0, 1.0);
            const int filled = static_cast<int>(std::lround(share * levels)) - row * 8;
            line += blocks[std::clamp(filled, 0, 8)];
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();  // no trailing blanks on a terminal
        out.push_back(line);
    }
    const std::string from = dayText(calendar, points.front().day);
    const std::string to = dayText(calendar, points.back().day);
    const std::size_t gap = points.size() > from.size() + to.size() ? points.size() - from.size() - to.size() : 1;
    out.push_back("       " + from + std::string(gap, ' ') + to);
    return out;
}

}  // namespace brimstell
