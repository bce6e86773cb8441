#include "kit/widget/WidgetFeed.hpp"

#include <algorithm>
#include <cctype>

#include "kit/settings/SettingsKeys.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

namespace {
bool saysFail(const std::string& status) {
    std::string lower = status;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower.find("fail") != std::string::npos;
}
}  // namespace

std::optional<std::string> WidgetFeed::update(std::optional<std::int64_t> junk,
                                              const std::optional<BatteryDetails>& battery,
                                              const std::optional<DiskHealth>& disk) {
    const auto container = WidgetSnapshot::container();
    if (!container) return std::nullopt;
    const auto previous = WidgetSnapshot::read(*container);
    auto& settings = quorv::settings();

    WidgetSnapshot s;
    s.junk = junk ? *junk : previous ? previous->junk : 0;
    const double lastClean = settings.number(keys::widgetLastClean);
    if (lastClean > 0) s.lastClean = lastClean;
    s.lastFreed = settings.integer(keys::widgetLastFreed);
    if (battery) {
        s.batteryHealth = battery->health;
    } else if (previous) {
        s.batteryHealth = previous->batteryHealth;
    }
    if (disk) {
        s.diskStatus = disk->smart;
    } else if (previous) {
        s.diskStatus = previous->diskStatus;
    }
    s.diskFailing = s.diskStatus && saysFail(*s.diskStatus);
    s.updated = quorv::host().now();

    const bool written = s.write(*container);
    if (const auto& reload = quorv::host().reloadWidgets) reload();
    if (!written) return std::nullopt;
    return *container + "/" + WidgetSnapshot::fileName;
}

}  // namespace brimstell
