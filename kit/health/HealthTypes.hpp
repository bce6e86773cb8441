#pragma once
// One reading of the battery and of the start-up disk.

#include <cstdint>
#include <optional>
#include <string>

#include "kit/health/NVMeLog.hpp"

namespace brimstell {

// Why a battery's health ratio is not taken as it was read.
enum class HealthFlag {
    none,
    aboveDesign,  // it claims more than its design capacity: counted as 1.0
    noDesign,     // no design capacity: no ratio can be worked out
    noCapacity,   // no full-charge capacity: likewise
};

struct BatteryDetails {
    double health = 0;  // ratio, 1.0 = as new
    std::int64_t cycles = 0;
    std::int64_t fullCapacity = 0;  // in capacityUnit
    std::int64_t percent = 0;
    bool charging = false;
    bool plugged = false;
    std::int64_t designCapacity = 0;  // in capacityUnit
    double temperature = 0;           // degrees Celsius
    std::optional<std::string> condition;
    std::optional<std::int64_t> chargerWatts;

    // Beyond what the Mac's reading holds: the unit of the capacities ("mAh"; "mWh" for a Linux
    // battery that gives only energy and no voltage to turn it into charge), and why the health
    // isn't believed as read, with the ratio as it was read.
    std::string capacityUnit = "mAh";
    HealthFlag flag = HealthFlag::none;
    double readRatio = 0;

    // Whether health says anything: a reading without a design or full capacity is kept out of
    // the history and the worn-battery alert.
    bool healthKnown() const { return flag != HealthFlag::noDesign && flag != HealthFlag::noCapacity; }
};

struct DiskHealth {
    std::string name = "Startup disk";
    std::int64_t size = 0;
    std::string smart = "Unknown";
    bool solidState = false;
    std::optional<NVMeLog> wear;

    // True when the status, in lower case, contains "fail".
    bool failing() const;
};

}  // namespace brimstell
