#pragma once
// Batteries and chargers as Linux's power-supply class lists them (/sys/class/power_supply): one
// folder per supply, its attributes as small files and all of them at once in "uevent".

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/health/HealthTypes.hpp"

namespace brimstell {

// One supply: its folder's name and its attributes by their file names ("energy_full", "status").
struct PowerSupply {
    std::string name;
    std::map<std::string, std::string> attributes;

    std::optional<std::string> text(const std::string& key) const;
    std::optional<std::int64_t> number(const std::string& key) const;
    bool isBattery() const;
    bool isCharger() const;
};

struct SysfsPower {
    // The attributes of a "uevent" text: "POWER_SUPPLY_ENERGY_FULL=47390000" as "energy_full".
    static std::map<std::string, std::string> parseUevent(std::string_view text);

    // Every supply in a power_supply folder (a location), each from its "uevent", with the
    // attribute files filling in what the uevent lacks. Supplies are in name order.
    static std::vector<PowerSupply> read(const std::string& folder);

    // The first system battery with its chargers' state; nullopt when there is none.
    static std::optional<BatteryDetails> battery(const std::vector<PowerSupply>& supplies);
};

}  // namespace brimstell
