#pragma once
// When the battery will cross 80% of its design capacity, from the trend of its daily history.

#include <optional>
#include <string>
#include <vector>

#include "kit/health/HealthHistory.hpp"

namespace brimstell {

struct HealthForecast {
    static constexpr double wornBelow = 0.8;
    static constexpr double minimumSpanDays = 30;
    static constexpr double horizonDays = 20 * 365.25;

    // The day the trend reaches 80%, when it does within twenty years.
    std::optional<double> crossing;
    // For people: "At this rate it falls under 80% around March 2027.", or why there is no date.
    std::string message;

    // A least-squares line through the points' health over their days. Needs points spanning at
    // least 30 days; the date is never before the last point's day.
    static HealthForecast of(const std::vector<HealthPoint>& points, const quorv::Calendar& calendar);
};

}  // namespace brimstell
