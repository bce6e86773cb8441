#pragma once
// How worn the battery and the start-up disk are. On a Mac (and a sandbox Mac) from the registry,
// the power sources, "diskutil" and the NVMe log; on Linux from the power-supply class and
// "smartctl". Nothing here throws: what can't be read is none.

#include <optional>

#include "kit/health/HealthTypes.hpp"
#include "kit/health/LinuxDisk.hpp"

namespace brimstell {

struct HealthProbe {
    // diskutil's time limits: 60 seconds for the disk that holds the figures; for the first run,
    // about "/", 30, the limit any tool Brimstell starts gets by default, since that answer comes
    // from the mounted volume and needs no disk to wake.
    static constexpr double firstDiskutilSeconds = 30;
    static constexpr double nextDiskutilSeconds = 60;

    // None on a machine without an internal battery.
    static std::optional<BatteryDetails> battery();
    // None when the disk tool fails.
    static std::optional<DiskHealth> disk();
    // The same, saying why there is none.
    static DiskReading readDisk();
};

}  // namespace brimstell
