// brimstell health [--json] [--history]

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/health/BatteryFacts.hpp"
#include "kit/health/HealthChart.hpp"
#include "kit/health/HealthReport.hpp"
#include "support/host/Host.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::BatteryDetails;
using brimstell::DiskHealth;
using brimstell::NVMeLog;

long long percentOf(double ratio) { return static_cast<long long>(std::trunc(ratio * 100)); }

std::int64_t bytesOf(double bytes) { return bytes >= 9.2e18 ? INT64_MAX : static_cast<std::int64_t>(std::max(bytes, 0.0)); }

Json batteryJson(const BatteryDetails& b) {
    Json j = Json::object();
    j["health"] = b.healthKnown() ? Json(b.health) : Json(nullptr);
    j["cycles"] = b.cycles;
    j["fullCapacity"] = b.fullCapacity;
    j["designCapacity"] = b.designCapacity;
    j["capacityUnit"] = b.capacityUnit;
    j["percent"] = b.percent;
    j["charging"] = b.charging;
    j["plugged"] = b.plugged;
    j["temperature"] = b.temperature;
    j["condition"] = b.condition ? Json(*b.condition) : Json(nullptr);
    j["chargerWatts"] = b.chargerWatts ? Json(*b.chargerWatts) : Json(nullptr);
    if (const auto note = brimstell::BatteryFacts::flagText(b); !note.empty()) j["note"] = note;
    return j;
}

Json wearJson(const NVMeLog& w) {
    return {{"percentUsed", w.percentUsed},           {"spare", w.spare},
            {"spareThreshold", w.spareThreshold},     {"criticalWarning", w.criticalWarning},
            {"readBytes", bytesOf(w.bytesRead)},      {"writtenBytes", bytesOf(w.bytesWritten)},
            {"powerOnHours", w.powerOnHours},         {"unsafeShutdowns", w.unsafeShutdowns},
            {"mediaErrors", w.mediaErrors}};
}

Json diskJson(const brimstell::DiskReading& reading) {
    if (!reading.disk) return {{"error", reading.problem}};
    const DiskHealth& d = *reading.disk;
    return {{"name", d.name},
            {"totalBytes", std::max<std::int64_t>(d.size, 0)},
            {"smartStatus", d.smart},
            {"failing", d.failing()},
            {"solidState", d.solidState},
            {"wear", d.wear ? wearJson(*d.wear) : Json(nullptr)}};
}

Json reportJson(const brimstell::HealthReport& r) {
    Json j = Json::object();
    j["battery"] = r.battery ? batteryJson(*r.battery) : Json(nullptr);
    j["disk"] = diskJson(r.disk);
    j["history"] = Json::array();
    for (const auto& p : r.history) {
        j["history"].push_back({{"date", dateJson(p.day)}, {"health", p.health}, {"cycles", p.cycles}, {"fullCapacity", p.fullCapacity}});
    }
    j["keptToday"] = r.keptToday;
    j["forecast"] = {{"crossesAt", r.forecast.crossing ? dateJson(*r.forecast.crossing) : Json(nullptr)}, {"message", r.forecast.message}};
    return j;
}

void row(const char* label, const std::string& value) { fmt::print("  {:<18}{}\n", label, value); }

void printBattery(const std::optional<BatteryDetails>& battery) {
    fmt::print("Battery\n");
    if (!battery) {
        fmt::print("  No battery found.\n");
        return;
    }
    const BatteryDetails& b = *battery;
    if (b.healthKnown()) {
        row("Health", fmt::format("{}% ({} of {} {} when new)", percentOf(b.health), b.fullCapacity, b.designCapacity, b.capacityUnit));
    } else {
        row("Health", "unknown");
    }
    if (const auto note = brimstell::BatteryFacts::flagText(b); !note.empty()) row("", note);
    row("Cycles", std::to_string(b.cycles));
    row("Charge", fmt::format("{}%, {}", b.percent, b.charging ? "charging" : b.plugged ? "on its charger, not charging" : "on battery"));
    if (b.condition) row("Condition", *b.condition);
    if (b.chargerWatts) row("Charger", fmt::format("{} W", *b.chargerWatts));
    if (b.temperature != 0) row("Temperature", fmt::format("{:.1f} °C", b.temperature));
}

void printWear(const NVMeLog& w) {
    row("NVMe wear", fmt::format("{}% of its rated endurance used", w.percentUsed));
    row("Spare", fmt::format("{}% (it warns under {}%)", w.spare, w.spareThreshold));
    row("Data written", quorv::formatSize(bytesOf(w.bytesWritten)));
    row("Data read", quorv::formatSize(bytesOf(w.bytesRead)));
    row("Power-on hours", std::to_string(w.powerOnHours));
    row("Unsafe shutdowns", std::to_string(w.unsafeShutdowns));
    row("Media errors", std::to_string(w.mediaErrors));
}

void printDisk(const brimstell::DiskReading& reading) {
    fmt::print("Disk\n");
    if (!reading.disk) {
        fmt::print("  No reading: {}\n", reading.problem);
        return;
    }
    const DiskHealth& d = *reading.disk;
    row("Name", d.name);
    row("Size", quorv::formatSize(d.size));
    row("SMART status", d.smart + (d.failing() ? " — back up now, and have it checked" : ""));
    row("Solid state", d.solidState ? "yes" : "no");
    if (d.wear) printWear(*d.wear);
}

void printReport(const brimstell::HealthReport& r, bool chart) {
    printBattery(r.battery);
    printDisk(r.disk);
    if (!r.battery && r.history.empty()) return;  // no battery ever read: nothing to draw or forecast
    fmt::print("History\n");
    row("Days kept", std::to_string(r.history.size()) + (r.history.size() >= 2 && !chart ? " (--history draws them)" : ""));
    if (chart) {
        for (const auto& line : brimstell::HealthChart::lines(r.history, quorv::host().calendar)) fmt::print("  {}\n", line);
    }
    row("Forecast", r.forecast.message);
}

}  // namespace

void addHealthCommand(CLI::App& app, int& /*exitCode*/) {
    static bool json = false;
    static bool history = false;
    auto* command = jsonCommand(&app, "health", "Battery and disk health, the daily battery history and its forecast", json);
    command->add_flag("--history", history, "Draw the daily battery history");
    command->callback([] {
        const auto report = brimstell::HealthReport::take();
        if (json) {
            printJson(reportJson(report));
        } else {
            printReport(report, history);
        }
    });
}

}  // namespace cli
