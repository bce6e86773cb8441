#pragma once
// The daily history drawn for a terminal: health in block characters, one column a reading.

#include <string>
#include <vector>

#include "kit/health/HealthHistory.hpp"

namespace brimstell {

struct HealthChart {
    // Shown instead of a chart with fewer than two points.
    static constexpr const char* tooFew = "A reading is kept each day. The chart appears once there are two.";

    // rows lines of the last `columns` points, each "100% │" + bars, then a line with the first
    // and last day drawn. The scale runs from 100% down to the lowest point rounded down to 5%
    // (80% at the highest), so wear shows even when it is slight.
    static std::vector<std::string> lines(const std::vector<HealthPoint>& points, const quorv::Calendar& calendar,
                                          std::size_t columns = 60, int rows = 5);
};

}  // namespace brimstell
