#include "kit/health/BatteryFacts.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "kit/health/PlistFields.hpp"

namespace brimstell {

namespace pf = plistfields;

// Health is the full-charge capacity over the design capacity, both in the battery's own unit:
// what it holds now against what it held new, the ratio Apple's own battery pages and the Linux
// power-supply class both stand on. Cycles and age are shown beside it, not folded in. A battery
// that claims more than it was designed for (gauges do, for a while after calibration) is counted
// as new, 1.0, and flagged; one without either figure gets no ratio at all, so that a missing
// number never reads as a worn-out battery.
void BatteryFacts::rate(BatteryDetails& b) {
    b.readRatio = 0;
    if (b.designCapacity <= 0) {
        b.flag = HealthFlag::noDesign;
        b.health = 0;
        return;
    }
    if (b.fullCapacity <= 0) {
        b.flag = HealthFlag::noCapacity;
        b.health = 0;
        return;
    }
    b.readRatio = static_cast<double>(b.fullCapacity) / static_cast<double>(b.designCapacity);
    b.flag = b.readRatio > 1.0 ? HealthFlag::aboveDesign : HealthFlag::none;
    b.health = std::min(b.readRatio, 1.0);
}

namespace {

const quorv::Value* internalBattery(const std::vector<quorv::Value>& sources) {
    for (const auto& s : sources) {
        if (pf::text(s, "Type") == "InternalBattery") return &s;
    }
    return nullptr;
}

std::int64_t whole(double v) { return std::isfinite(v) && std::fabs(v) < 1e15 ? static_cast<std::int64_t>(std::llround(v)) : 0; }

// Percent of charge: the power source's figure when it has one, else the registry's current over
// its maximum (a percentage on Apple silicon, mAh on Intel Macs: the quotient is right for both).
std::int64_t percentOf(const quorv::Value& registry, const quorv::Value* source) {
    if (source) {
        const auto current = pf::integer(*source, "Current Capacity");
        const auto max = pf::integer(*source, "Max Capacity");
        if (current && max && *max > 0) return whole(100.0 * static_cast<double>(*current) / static_cast<double>(*max));
    }
    const auto current = pf::integer(registry, "CurrentCapacity");
    const auto max = pf::integer(registry, "MaxCapacity");
    if (current && max && *max > 0) return whole(100.0 * static_cast<double>(*current) / static_cast<double>(*max));
    return 0;
}

}  // namespace

std::optional<BatteryDetails> BatteryFacts::fromRegistry(const quorv::Value& registry,
                                                         const std::vector<quorv::Value>& powerSources,
                                                         const std::optional<quorv::Value>& adapter) {
    if (!registry.is<quorv::Value::Dict>() || pf::boolean(registry, "BatteryInstalled") == false) return std::nullopt;
    const quorv::Value* source = internalBattery(powerSources);
    BatteryDetails b;
    b.cycles = pf::integer(registry, "CycleCount").value_or(0);
    b.designCapacity = pf::integer(registry, "DesignCapacity").value_or(0);
    b.fullCapacity = pf::integer(registry, "NominalChargeCapacity")
                         .value_or(pf::integer(registry, "AppleRawMaxCapacity").value_or(0));
    b.percent = percentOf(registry, source);
    b.charging = pf::boolean(registry, "IsCharging").value_or(false);
    b.plugged = pf::boolean(registry, "ExternalConnected").value_or(false);
    // The registry keeps hundredths of a degree Celsius.
    b.temperature = static_cast<double>(pf::integer(registry, "Temperature").value_or(0)) / 100.0;
    if (source) {
        if (auto c = pf::text(*source, "BatteryHealthCondition"); c && !c->empty()) b.condition = *c;
    }
    if (adapter) b.chargerWatts = pf::integer(*adapter, "Watts");
    rate(b);
    return b;
}

std::string BatteryFacts::flagText(const BatteryDetails& b) {
    switch (b.flag) {
        case HealthFlag::none:
            return {};
        case HealthFlag::aboveDesign:
            return fmt::format("It reports {}% of its design capacity, which no battery holds: counted as 100%.",
                               static_cast<long long>(std::trunc(b.readRatio * 100)));
        case HealthFlag::noDesign:
            return "It reports no design capacity, so its health can't be worked out.";
        case HealthFlag::noCapacity:
            return "It reports no full-charge capacity, so its health can't be worked out.";
    }
    return {};
}

}  // namespace brimstell
