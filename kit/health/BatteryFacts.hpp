#pragma once
// The battery reading from the dictionaries a Mac gives: the I/O registry's "AppleSmartBattery"
// properties, the power-source descriptions and the external power adapter's details; and the
// health ratio every platform's reading shares.

#include <optional>
#include <string>
#include <vector>

#include "kit/health/HealthTypes.hpp"
#include "support/settings/Value.hpp"

namespace brimstell {

struct BatteryFacts {
    // Sets health, flag and readRatio from fullCapacity and designCapacity.
    static void rate(BatteryDetails& battery);

    // nullopt when the registry entry says no battery is installed, or isn't a dictionary.
    static std::optional<BatteryDetails> fromRegistry(const quorv::Value& smartBattery,
                                                      const std::vector<quorv::Value>& powerSources,
                                                      const std::optional<quorv::Value>& adapter);

    // Why the health isn't taken as read, for people; empty when it is.
    static std::string flagText(const BatteryDetails& battery);
};

}  // namespace brimstell
