#include "kit/health/HealthReport.hpp"

#include "support/background/Background.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

HealthReport HealthReport::take() {
    const auto& h = quorv::host();
    const double now = h.now();
    HealthReport r;
    r.battery = quorv::Background::await([] { return HealthProbe::battery(); });
    r.disk = quorv::Background::await([] { return HealthProbe::readDisk(); });
    auto& history = HealthHistory::shared();
    if (r.battery && r.battery->healthKnown() && history.due(now, h.calendar)) {
        r.keptToday = history.record(*r.battery, now, h.calendar);
    }
    r.history = history.load();
    r.forecast = HealthForecast::of(r.history, h.calendar);
    return r;
}

}  // namespace brimstell
