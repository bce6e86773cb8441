#pragma once
// What the Health page shows: the battery and disk now, the daily history and its forecast.
// Taking it keeps today's battery reading in the history when none is kept yet, as the agent does.

#include <optional>
#include <vector>

#include "kit/health/HealthForecast.hpp"
#include "kit/health/HealthHistory.hpp"
#include "kit/health/HealthProbe.hpp"

namespace brimstell {

struct HealthReport {
    std::optional<BatteryDetails> battery;
    DiskReading disk;
    std::vector<HealthPoint> history;
    HealthForecast forecast;
    bool keptToday = false;  // this reading became today's point

    static HealthReport take();
};

}  // namespace brimstell
