#pragma once
// Where a Mac's battery and disk facts come from: the I/O registry, the power-source interface and
// the NVMe SMART interface on a Mac, files laid out in a sandbox Mac. It hands over dictionaries
// and bytes as the system gives them; every decision on them is made by the health engine.

#include <optional>
#include <string>
#include <vector>

#include "support/settings/Value.hpp"

namespace quorv {

class HealthSource {
public:
    virtual ~HealthSource() = default;

    // The properties of the registry service matching "AppleSmartBattery"; nullopt without one.
    virtual std::optional<Value> smartBattery() = 0;
    // The descriptions of every power source.
    virtual std::vector<Value> powerSources() = 0;
    // The external power adapter's details; nullopt when none is connected.
    virtual std::optional<Value> powerAdapter() = 0;
    // The SMART / Health Information log page of the first NVMe disk that can give one, as read.
    virtual std::optional<std::string> nvmeSmartLog() = 0;
};

}  // namespace quorv
