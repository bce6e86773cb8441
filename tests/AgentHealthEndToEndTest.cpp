// The built agent over a sandbox Mac's battery and disk: the daily history, the worn-battery alert
// with its latch at the edges of 80% and 82%, the failing-disk alert, and the widget's figures.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

using testing_support::readText;

struct HealthSandbox {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");
    std::string outbox = dir / "outbox.jsonl";

    quorv::PlistFileStore settings() const { return quorv::PlistFileStore(mac.home() + "/Library/Preferences/com.quorv.brimstell.plist"); }
    std::string historyFile() const { return mac.home() + "/Library/Application Support/Brimstell/health-history.json"; }
    nlohmann::json widget() const {
        return nlohmann::json::parse(readText(mac.home() + "/Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell/widget.json"));
    }
    void run(double now = 1'790'000'000) const {
        auto env = mac.environment();
        env.insert({{"BRIMSTELL_OUTBOX", outbox}, {"BRIMSTELL_NOW", std::to_string(static_cast<long long>(now))}, {"TZ", "UTC"}});
        ASSERT_EQ(testing_support::runProgram(BRIMSTELL_AGENT_EXE, {}, env).status, 0);
    }
    std::vector<nlohmann::json> alerts() const {
        std::vector<nlohmann::json> out;
        for (const auto& line : testing_support::linesOf(outbox)) out.push_back(nlohmann::json::parse(line));
        return out;
    }
};

TEST(AgentHealthEndToEnd, WornBatteryAlertsUnder80AndClearsAt82) {
    HealthSandbox s;
    s.mac.addDisk();
    s.settings().set("warnBatteryWorn", true);
    const struct {
        std::int64_t full;  // of 5000 mAh
        bool latched;
        std::size_t alerts;
    } steps[] = {
        {4000, false, 0},  // 0.8: not worn
        {3975, true, 1},   // 0.795
        {3960, true, 1},   // latched: no second alert
        {4095, true, 1},   // 0.819: the latch holds
        {4100, false, 1},  // 0.82: it clears
    };
    for (const auto& step : steps) {
        brimstell::SandboxBattery battery;
        battery.fullCapacity = step.full;
        s.mac.addBattery(battery);
        s.run();
        EXPECT_EQ(s.settings().boolean("agent.alarm.batteryWorn"), step.latched) << step.full;
        EXPECT_EQ(s.alerts().size(), step.alerts) << step.full;
    }
    const auto alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0]["title"], "Your battery is worn");
    EXPECT_EQ(alerts[0]["body"], "It holds 79% of what it did new. Apple considers under 80% worn.");
    EXPECT_EQ(s.widget()["batteryHealth"], 0.82);
    EXPECT_FALSE(s.widget().contains("diskStatus")) << "the disk is read only for its warning";
}

TEST(AgentHealthEndToEnd, OnePointADayInTheHistory) {
    HealthSandbox s;
    brimstell::SandboxBattery battery;
    battery.fullCapacity = 4500;
    battery.cycles = 300;
    s.mac.addBattery(battery);
    s.run(1'790'000'000);  // 2026-09-21
    battery.fullCapacity = 4490;
    battery.cycles = 301;
    s.mac.addBattery(battery);
    s.run(1'790'003'600);  // an hour later: the day is kept already
    s.run(1'790'086'400);  // the next day
    const auto history = nlohmann::json::parse(readText(s.historyFile()));
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0], nlohmann::json::parse(R"({"day": "2026-09-21T00:00:00+00:00", "health": 0.9, "cycles": 300, "fullCapacity": 4500})"));
    EXPECT_EQ(history[1]["day"], "2026-09-22T00:00:00+00:00");
    EXPECT_EQ(history[1]["cycles"], 301);
    EXPECT_EQ(s.widget()["batteryHealth"], 0.898);
}

TEST(AgentHealthEndToEnd, AMacWithoutABatteryKeepsNoHistory) {
    HealthSandbox s;
    s.settings().set("warnBatteryWorn", true);
    s.run();
    EXPECT_FALSE(std::filesystem::exists(s.historyFile()));
    EXPECT_TRUE(s.alerts().empty());
    EXPECT_FALSE(s.widget().contains("batteryHealth"));

    brimstell::SandboxBattery noDesign;
    noDesign.designCapacity = 0;
    s.mac.addBattery(noDesign);
    s.run();
    EXPECT_FALSE(std::filesystem::exists(s.historyFile())) << "a health that can't be worked out isn't kept";
    EXPECT_TRUE(s.alerts().empty()) << "nor taken for a worn battery";
}

TEST(AgentHealthEndToEnd, FailingDiskAlertsOnceAndVerifiedClears) {
    HealthSandbox s;
    s.settings().set("warnDiskHealth", true);
    brimstell::SandboxDisk disk;
    disk.smart = "Failing";
    s.mac.addDisk(disk);
    s.run();
    s.run();
    auto alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0]["title"], "Your disk reports a problem");
    EXPECT_EQ(alerts[0]["body"], "Its self-check says Failing. Back up now, and have it checked.");
    EXPECT_TRUE(s.settings().boolean("agent.alarm.diskHealth"));
    EXPECT_EQ(s.widget()["diskStatus"], "Failing");
    EXPECT_EQ(s.widget()["diskFailing"], true);
    const auto tools = testing_support::linesOf(s.mac.root() + "/private/var/log/tools.log");
    ASSERT_GE(tools.size(), 2u);
    EXPECT_EQ(tools[0], "/usr/sbin/diskutil info -plist /");
    EXPECT_EQ(tools[1], "/usr/sbin/diskutil info -plist disk0s2") << "the APFS volume's physical store";

    disk.smart = "Verified";
    s.mac.addDisk(disk);
    s.run();
    EXPECT_FALSE(s.settings().object("agent.alarm.diskHealth").has_value());
    EXPECT_EQ(s.alerts().size(), 1u);
    EXPECT_EQ(s.widget()["diskFailing"], false);
}

// The same run on Linux: the battery from the power-supply class, the history in the state folder,
// and the alert's rule said without naming Apple.
TEST(AgentHealthEndToEnd, OnLinuxFromThePowerSupplyClass) {
    testing_support::TempDir dir;
    const std::string home = dir / "home/ann";
    quorv::files::writeAtomically(dir / "sys/class/power_supply/BAT0/uevent",
                                  "POWER_SUPPLY_NAME=BAT0\nPOWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\n"
                                  "POWER_SUPPLY_CHARGE_FULL=3975000\nPOWER_SUPPLY_CHARGE_FULL_DESIGN=5000000\nPOWER_SUPPLY_CYCLE_COUNT=733\n");
    quorv::PlistFileStore(home + "/.config/brimstell/settings.plist").set("warnBatteryWorn", true);
    const auto r = testing_support::runProgram(BRIMSTELL_AGENT_EXE, {},
                                               {{"BRIMSTELL_ROOT", dir.path()}, {"BRIMSTELL_PLATFORM", "linux"}, {"HOME", home},
                                                {"BRIMSTELL_OUTBOX", dir / "outbox.jsonl"}, {"BRIMSTELL_NOW", "1790000000"}, {"TZ", "UTC"}});
    ASSERT_EQ(r.status, 0) << r.errors;
    const auto lines = testing_support::linesOf(dir / "outbox.jsonl");
    ASSERT_EQ(lines.size(), 1u);
    const auto alert = nlohmann::json::parse(lines[0]);
    EXPECT_EQ(alert["title"], "Your battery is worn");
    EXPECT_EQ(alert["body"], "It holds 79% of what it did new. Under 80% counts as worn.");
    const auto history = nlohmann::json::parse(readText(home + "/.local/state/brimstell/health-history.json"));
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0]["cycles"], 733);
    EXPECT_EQ(history[0]["fullCapacity"], 3975);
}

}  // namespace
