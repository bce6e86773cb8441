#pragma once
// Assembles the widget's snapshot from the latest figures, writes it, and reloads the widget.

#include <cstdint>
#include <optional>
#include <string>

#include "kit/health/HealthTypes.hpp"

namespace brimstell {

struct WidgetFeed {
    // A figure not given keeps the previous snapshot's value: the junk total (0 when there was
    // none), and equally the battery health and disk status, so a run that read neither doesn't
    // blank what the widget shows. Returns the file written, or nullopt when nothing was written.
    static std::optional<std::string> update(std::optional<std::int64_t> junk, const std::optional<BatteryDetails>& battery,
                                             const std::optional<DiskHealth>& disk);
};

}  // namespace brimstell
