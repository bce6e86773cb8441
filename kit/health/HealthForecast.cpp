#include "kit/health/HealthForecast.hpp"

#include <cmath>

#include <fmt/format.h>

namespace brimstell {

namespace {

constexpr double day = 86'400;

HealthForecast saying(std::string message) {
    HealthForecast f;
    f.message = std::move(message);
    return f;
}

}  // namespace

HealthForecast HealthForecast::of(const std::vector<HealthPoint>& points, const quorv::Calendar& calendar) {
    if (points.size() < 2 || (points.back().day - points.front().day) / day < minimumSpanDays) {
        return saying("A forecast needs 30 days of readings.");
    }
    if (points.back().health < wornBelow) return saying("It is already under 80%.");
    // Days counted from the first point keep the sums small enough to stay exact.
    const double n = static_cast<double>(points.size());
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const auto& p : points) {
        const double x = (p.day - points.front().day) / day;
        sx += x;
        sy += p.health;
        sxx += x * x;
        sxy += x * p.health;
    }
    const double spread = n * sxx - sx * sx;
    const double slope = spread > 0 ? (n * sxy - sx * sy) / spread : 0;
    if (!(slope < 0)) return saying("It isn't wearing measurably.");
    const double intercept = (sy - slope * sx) / n;
    const double lastX = (points.back().day - points.front().day) / day;
    const double crossX = std::max((wornBelow - intercept) / slope, lastX);
    if (crossX - lastX > horizonDays) return saying("At this rate it stays over 80% for twenty years and more.");
    HealthForecast f;
    f.crossing = points.front().day + std::round(crossX) * day;
    f.message = fmt::format("At this rate it falls under 80% around {}.", calendar.monthText(*f.crossing));
    return f;
}

}  // namespace brimstell
