#pragma once
// One reading of the battery and of the start-up disk.

#include <cstdint>
#include <optional>
#include <string>

namespace brimstell {

struct BatteryDetails {
    double health = 0;  // ratio, 1.0 = as new
    std::int64_t cycles = 0;
    std::int64_t fullCapacity = 0;  // mAh
    std::int64_t percent = 0;
    bool charging = false;
    bool plugged = false;
    std::int64_t designCapacity = 0;  // mAh
    double temperature = 0;
    std::optional<std::string> condition;
    std::optional<std::int64_t> chargerWatts;
};

// The fields of the NVMe SMART / Health Information log page that Brimstell uses.
struct NVMeLog {
    std::uint8_t criticalWarning = 0;
    std::uint8_t spare = 0;
    std::uint8_t spareThreshold = 0;
    std::uint8_t percentUsed = 0;
    double bytesRead = 0;
    double bytesWritten = 0;
    std::uint64_t powerOnHours = 0;
    std::uint64_t unsafeShutdowns = 0;
    std::uint64_t mediaErrors = 0;
};

struct DiskHealth {
    std::string name = "Startup disk";
    std::int64_t size = 0;
    std::string smart = "Unknown";
    bool solidState = false;
    std::optional<NVMeLog> wear;
};

}  // namespace brimstell
