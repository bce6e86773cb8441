// brimstell health on a sandbox Mac and on a bare Linux root: what it prints, its JSON, the chart
// and the forecast, and today's point kept.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/health/HealthHistory.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"

namespace {

using testing_support::runProgram;

struct MacWithHealth : testing_support::CliMac {
    MacWithHealth() {
        mac.addBattery();
        mac.addDisk();
        env["BRIMSTELL_NOW"] = "1790000000";
    }
    std::string historyFile() const { return mac.home() + "/Library/Application Support/Brimstell/health-history.json"; }
};

TEST(HealthCli, PrintsTheBatteryTheDiskAndKeepsToday) {
    MacWithHealth s;
    const auto r = s.run({"health"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.output,
              "Battery\n"
              "  Health            89% (4460 of 5000 mAh when new)\n"
              "  Cycles            312\n"
              "  Charge            76%, on its charger, not charging\n"
              "  Charger           67 W\n"
              "  Temperature       30.5 °C\n"
              "Disk\n"
              "  Name              APPLE SSD AP0512Q\n"
              "  Size              500.28 GB\n"
              "  SMART status      Verified\n"
              "  Solid state       yes\n"
              "  NVMe wear         2% of its rated endurance used\n"
              "  Spare             100% (it warns under 99%)\n"
              "  Data written      14.85 TB\n"
              "  Data read         19.46 TB\n"
              "  Power-on hours    1870\n"
              "  Unsafe shutdowns  14\n"
              "  Media errors      0\n"
              "History\n"
              "  Days kept         1\n"
              "  Forecast          A forecast needs 30 days of readings.\n");
    const auto j = nlohmann::json::parse(s.run({"health", "--json"}).output);
    EXPECT_EQ(j["keptToday"], false) << "kept by the first run";
    ASSERT_EQ(j["history"].size(), 1u);
    EXPECT_EQ(j["history"][0]["date"], "2026-09-21T00:00:00Z");
    EXPECT_EQ(j["history"][0]["health"], 0.892);
}

TEST(HealthCli, FlaggedBatteryAndFailingDisk) {
    MacWithHealth s;
    brimstell::SandboxBattery battery;
    battery.fullCapacity = 5300;
    battery.condition = "Service Recommended";
    s.mac.addBattery(battery);
    brimstell::SandboxDisk disk;
    disk.smart = "Failing";
    disk.nvmeLog = false;
    s.mac.addDisk(disk);
    const auto r = s.run({"health", "--json"});
    ASSERT_EQ(r.status, 0);
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_EQ(j["battery"]["health"], 1.0);
    EXPECT_EQ(j["battery"]["note"], "It reports 106% of its design capacity, which no battery holds: counted as 100%.");
    EXPECT_EQ(j["battery"]["condition"], "Service Recommended");
    EXPECT_EQ(j["disk"]["smartStatus"], "Failing");
    EXPECT_EQ(j["disk"]["failing"], true);
    EXPECT_TRUE(j["disk"]["wear"].is_null());
    const auto text = s.run({"health"}).output;
    EXPECT_NE(text.find("  SMART status      Failing — back up now, and have it checked\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  Condition         Service Recommended\n"), std::string::npos) << text;
}

TEST(HealthCli, TheChartAndTheForecast) {
    MacWithHealth s;
    quorv::Calendar utc;
    utc.utc = true;
    std::vector<brimstell::HealthPoint> points;
    for (int i = 0; i < 40; ++i) points.push_back({testing_support::utc(2026, 8, 12) + i * 86'400.0, 0.9 - 0.001 * i, 200 + i, 4500});
    quorv::files::writeAtomically(s.historyFile(), brimstell::encodeHealthHistory(points, utc));
    // Falling a thousandth a day from 0.9, and today's reading of 0.892 kept beside them.
    const auto r = s.run({"health", "--history"});
    ASSERT_EQ(r.status, 0);
    const auto from = r.output.find("History\n");
    ASSERT_NE(from, std::string::npos);
    EXPECT_EQ(r.output.substr(from),
              "History\n"
              "  Days kept         41\n"
              "   100% │\n"
              "        │\n"
              "        │▄▄▄▃▃▃▃▃▂▂▂▂▂▁▁▁▁▁                      ▂\n"
              "        │███████████████████████▇▇▇▇▇▆▆▆▆▆▅▅▅▅▅▄▄█\n"
              "    80% │█████████████████████████████████████████\n"
              "         2026-08-12                     2026-09-21\n"
              "  Forecast          At this rate it falls under 80% around December 2026.\n");
}

TEST(HealthCli, ALinuxMachineWithoutBatteryOrSmartctl) {
    testing_support::TempDir dir;
    quorv::files::makeFolders(dir / "home/ann");
    const auto r = runProgram(BRIMSTELL_CLI_EXE, {"health"},
                              {{"BRIMSTELL_ROOT", dir.path()}, {"BRIMSTELL_PLATFORM", "linux"}, {"HOME", dir / "home/ann"}});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output,
              "Battery\n"
              "  No battery found.\n"
              "Disk\n"
              "  No reading: The disk under / isn't a local block device.\n");
}

}  // namespace
