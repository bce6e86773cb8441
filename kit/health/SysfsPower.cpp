#include "kit/health/SysfsPower.hpp"

#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "kit/health/BatteryFacts.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

namespace {

constexpr std::size_t maxAttributeBytes = 64 * 1024;

// The attributes a reading uses, read from their own files when the uevent lacks them.
const char* const wanted[] = {
    "type", "scope", "status", "present", "online", "capacity", "cycle_count", "health", "temp",
    "charge_full", "charge_full_design", "charge_now", "energy_full", "energy_full_design", "energy_now",
    "voltage_min_design", "voltage_max", "current_max",
};

std::string trimmed(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    return std::string(s);
}

bool startsWith(const std::string& s, std::string_view prefix) { return s.compare(0, prefix.size(), prefix) == 0; }

// A figure worked out from the attributes, rounded; 0 for one no battery has (a hostile or broken
// attribute file can hold any number).
std::int64_t whole(double v) { return std::isfinite(v) && std::fabs(v) < 1e15 ? static_cast<std::int64_t>(std::llround(v)) : 0; }

}  // namespace

std::optional<std::string> PowerSupply::text(const std::string& key) const {
    auto it = attributes.find(key);
    if (it == attributes.end() || it->second.empty()) return std::nullopt;
    return it->second;
}

std::optional<std::int64_t> PowerSupply::number(const std::string& key) const {
    const auto t = text(key);
    if (!t) return std::nullopt;
    std::int64_t v = 0;
    const auto [end, ec] = std::from_chars(t->data(), t->data() + t->size(), v);
    if (ec != std::errc() || end != t->data() + t->size()) return std::nullopt;
    return v;
}

// A peripheral's battery (a mouse, a headset) has the scope "Device" and is no system battery.
bool PowerSupply::isBattery() const {
    if (text("scope") == "Device") return false;
    const auto type = text("type");
    return type ? *type == "Battery" : startsWith(name, "BAT");
}

bool PowerSupply::isCharger() const {
    if (text("scope") == "Device") return false;
    const auto type = text("type");
    if (!type) return startsWith(name, "AC") || startsWith(name, "ADP");
    return *type == "Mains" || startsWith(*type, "USB");
}

std::map<std::string, std::string> SysfsPower::parseUevent(std::string_view text) {
    std::map<std::string, std::string> out;
    constexpr std::string_view prefix = "POWER_SUPPLY_";
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        const auto eq = line.find('=');
        if (line.substr(0, prefix.size()) != prefix || eq == std::string_view::npos) continue;
        std::string key(line.substr(prefix.size(), eq - prefix.size()));
        std::transform(key.begin(), key.end(), key.begin(), [](unsigned char c) { return std::tolower(c); });
        out[key] = trimmed(line.substr(eq + 1));
    }
    return out;
}

std::vector<PowerSupply> SysfsPower::read(const std::string& folder) {
    std::vector<PowerSupply> out;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return out;
    while (const dirent* d = ::readdir(dir)) {
        if (d->d_name[0] == '.') continue;
        PowerSupply s;
        s.name = d->d_name;
        const std::string base = folder + "/" + s.name + "/";
        if (auto uevent = quorv::files::read(base + "uevent", maxAttributeBytes)) s.attributes = parseUevent(*uevent);
        for (const char* key : wanted) {
            if (s.attributes.count(key)) continue;
            if (auto v = quorv::files::read(base + key, maxAttributeBytes)) s.attributes[key] = trimmed(*v);
        }
        if (!s.attributes.empty()) out.push_back(std::move(s));
    }
    ::closedir(dir);
    std::sort(out.begin(), out.end(), [](const PowerSupply& a, const PowerSupply& b) { return a.name < b.name; });
    return out;
}

namespace {

// Capacities in mAh: charge_* is in µAh; energy_* in µWh, turned into charge by the design's
// minimum voltage, or left as mWh when the battery gives no voltage.
void capacities(const PowerSupply& s, BatteryDetails& b) {
    if (s.number("charge_full_design") || s.number("charge_full")) {
        b.designCapacity = s.number("charge_full_design").value_or(0) / 1000;
        b.fullCapacity = s.number("charge_full").value_or(0) / 1000;
        return;
    }
    const auto design = s.number("energy_full_design").value_or(0);
    const auto full = s.number("energy_full").value_or(0);
    const auto volts = s.number("voltage_min_design").value_or(0);
    if (volts > 0) {
        b.designCapacity = whole(1000.0 * static_cast<double>(design) / static_cast<double>(volts));
        b.fullCapacity = whole(1000.0 * static_cast<double>(full) / static_cast<double>(volts));
    } else {
        b.capacityUnit = "mWh";
        b.designCapacity = design / 1000;
        b.fullCapacity = full / 1000;
    }
}

std::int64_t percentOf(const PowerSupply& s) {
    if (auto c = s.number("capacity")) return *c;
    for (const char* kind : {"charge", "energy"}) {
        const auto now = s.number(std::string(kind) + "_now");
        const auto full = s.number(std::string(kind) + "_full");
        if (now && full && *full > 0) return whole(100.0 * static_cast<double>(*now) / static_cast<double>(*full));
    }
    return 0;
}

// The chargers: whether one is online, and its rated watts when it gives volts and amps.
void chargers(const std::vector<PowerSupply>& supplies, BatteryDetails& b) {
    for (const auto& s : supplies) {
        if (!s.isCharger() || s.number("online").value_or(0) != 1) continue;
        b.plugged = true;
        const auto volts = s.number("voltage_max");
        const auto amps = s.number("current_max");
        if (volts && amps && *volts > 0 && *amps > 0 && !b.chargerWatts) {
            b.chargerWatts = whole(static_cast<double>(*volts) * static_cast<double>(*amps) / 1e12);
        }
    }
}

}  // namespace

std::optional<BatteryDetails> SysfsPower::battery(const std::vector<PowerSupply>& supplies) {
    const auto it = std::find_if(supplies.begin(), supplies.end(), [](const PowerSupply& s) {
        return s.isBattery() && s.number("present").value_or(1) != 0;
    });
    if (it == supplies.end()) return std::nullopt;
    const PowerSupply& s = *it;
    BatteryDetails b;
    capacities(s, b);
    b.cycles = s.number("cycle_count").value_or(0);
    b.percent = percentOf(s);
    const std::string status = s.text("status").value_or("");
    b.charging = status == "Charging";
    // A full battery, or one held back from charging, is on its charger too.
    b.plugged = b.charging || status == "Full" || status == "Not charging";
    b.temperature = static_cast<double>(s.number("temp").value_or(0)) / 10.0;  // tenths of a degree
    if (auto h = s.text("health"); h && *h != "Unknown") b.condition = *h;
    chargers(supplies, b);
    BatteryFacts::rate(b);
    return b;
}

}  // namespace brimstell
