// Runs the built brimstell command against sandbox Macs.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/TestSupport.hpp"
#include "support/settings/PlistFileStore.hpp"

namespace {

using testing_support::runProgram;

struct CliSandbox : testing_support::CliMac {
    quorv::PlistFileStore settings() const { return quorv::PlistFileStore(settingsFile()); }
};

TEST(CliEndToEnd, SettingsSetKeepsTypesAndRanges) {
    CliSandbox s;
    const struct {
        std::vector<std::string> args;
        int status;
        const char* output;
        const char* errors;
        const char* storedType;  // nullptr = nothing stored
    } cases[] = {
        {{"settings", "set", "warnLowDiskGB", "25"}, 0, "warnLowDiskGB = 25 (integer)\n", "", "integer"},
        {{"settings", "set", "warnLowDisk", "no"}, 0, "warnLowDisk = false (boolean)\n", "", "boolean"},
        {{"settings", "set", "autoClean.frequency", "monthly"}, 0, "autoClean.frequency = monthly (string)\n", "", "string"},
        {{"settings", "set", "autoClean.lastRun", "1790000000.5"}, 0, "autoClean.lastRun = 1790000000.5 (2026-09-21 14:13) (double)\n", "", "double"},
        {{"settings", "set", "updatesLastCheck", "2026-11-01T00:00:00Z"}, 0, "updatesLastCheck = 1793491200 (2026-11-01 00:00) (date)\n", "", "date"},
        {{"settings", "set", "autoClean.emptyTrashDays", "0"}, 0, "autoClean.emptyTrashDays = 0 (integer)\n", "", "integer"},
        {{"settings", "set", "custom.count", "12", "--force"}, 0, "custom.count = 12 (integer)\n", "", "integer"},
        {{"settings", "set", "custom.word", "12abc", "--force"}, 0, "custom.word = 12abc (string)\n", "", "string"},
        {{"settings", "set", "custom.asString", "12", "--type", "string", "--force"}, 0, "custom.asString = 12 (string)\n", "", "string"},
        {{"settings", "set", "agent.loginItems", "/a b.plist", "/c.plist"}, 0, "agent.loginItems = [\"/a b.plist\", \"/c.plist\"] (array)\n", "", "array"},
        {{"settings", "set", "custom.flag", "true"}, 2, "",
         "brimstell: custom.flag isn't one of Brimstell's settings (--force stores a key of your own).\n", nullptr},
        {{"settings", "set", "autoClean.frequency", "hourly"}, 2, "",
         "brimstell: autoClean.frequency is daily, weekly or monthly, not \"hourly\".\n", nullptr},
        {{"settings", "set", "autoClean.downloadsDays", "--", "-1"}, 2, "", "brimstell: autoClean.downloadsDays can't be below 0.\n", nullptr},
        {{"settings", "set", "warnLowDiskGB", "--", "-5"}, 2, "", "brimstell: warnLowDiskGB can't be below 0.\n", nullptr},
        {{"settings", "set", "warnLowDisk", "12", "--type", "integer"}, 2, "", "brimstell: warnLowDisk holds a boolean, not an integer.\n", nullptr},
        {{"settings", "set", "warnLowDisk", "maybe"}, 2, "", "brimstell: warnLowDisk: \"maybe\" is not a boolean (use true or false)\n", nullptr},
        {{"settings", "set", "warnLowDiskGB", "lots"}, 2, "", nullptr, nullptr},
        {{"settings", "set", "warnLowDiskGB", "1.5"}, 2, "", nullptr, nullptr},
        {{"settings", "set", "updatesLastCheck", "yesterday"}, 2, "", nullptr, nullptr},
        {{"settings", "set", "custom.x", "1", "--type", "colour", "--force"}, 2, "", nullptr, nullptr},
    };
    for (const auto& c : cases) {
        const auto before = s.settings().object(c.args[2]);
        const auto r = s.run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[2];
        EXPECT_EQ(r.output, c.output) << c.args[2];
        if (c.errors) {
            EXPECT_EQ(r.errors, c.errors) << c.args[2];
        }
        auto v = s.settings().object(c.args[2]);
        if (c.storedType) {
            ASSERT_TRUE(v.has_value()) << c.args[2];
            EXPECT_EQ(v->typeName(), c.storedType) << c.args[2];
        } else {
            EXPECT_EQ(v, before) << c.args[2] << ": a refused value leaves the old one";
        }
    }
}

TEST(CliEndToEnd, GetShowsTheStoredValueElseTheDefault) {
    CliSandbox s;
    s.settings().set("warnLowDiskGB", 30);
    EXPECT_EQ(s.run({"settings", "get", "warnLowDiskGB"}).output, "30\n");
    const auto json = nlohmann::json::parse(s.run({"settings", "get", "warnLowDiskGB", "--json"}).output);
    EXPECT_EQ(json["type"], "integer");
    EXPECT_EQ(json["value"], 30);
    EXPECT_EQ(s.run({"settings", "remove", "warnLowDiskGB"}).output, "Removed warnLowDiskGB.\n");
    EXPECT_EQ(s.run({"settings", "remove", "warnLowDiskGB"}).output, "warnLowDiskGB was not set.\n");
    const auto unset = s.run({"settings", "get", "warnLowDiskGB"});
    EXPECT_EQ(unset.status, 0);
    EXPECT_EQ(unset.output, "10 (default)\n");
    EXPECT_EQ(nlohmann::json::parse(s.run({"settings", "get", "warnLowDiskGB", "--json"}).output),
              nlohmann::json::parse(R"({"key": "warnLowDiskGB", "type": "integer", "value": 10, "isDefault": true})"));
    EXPECT_EQ(nlohmann::json::parse(s.run({"settings", "get", "warnLowDisk", "--json"}).output)["value"], true);
    const auto none = s.run({"settings", "get", "agent.alarm.lowDisk"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.errors, "brimstell: agent.alarm.lowDisk isn't set, and has no default.\n");
    const auto unknown = s.run({"settings", "get", "nothing.here"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.errors, "brimstell: nothing.here isn't set.\n");
}

TEST(CliEndToEnd, AgentOnOffAndStatus) {
    CliSandbox s;
    auto status = nlohmann::json::parse(s.run({"agent", "status", "--json"}).output);
    EXPECT_EQ(status["backgroundChecks"], true);
    EXPECT_EQ(status["registration"], "notRegistered");
    // No battery reading kept today: the history job is due, though this Mac has none to take.
    EXPECT_EQ(status["due"], nlohmann::json::array({"history", "lowDisk", "leftovers", "loginItems"}));

    EXPECT_EQ(s.run({"agent", "on"}).output, "Background checks are on. Agent registration: enabled.\n");
    EXPECT_EQ(s.run({"agent", "off"}).output, "Background checks are off. Agent registration: not registered.\n");
    EXPECT_FALSE(s.settings().unlessFalse("backgroundChecks"));

    // The user held the agent back in the system's settings: switching on leaves that alone.
    s.mac.writeFile("/private/var/db/com.quorv.brimstell/agent-service-state", "2");
    const auto on = s.run({"agent", "on"});
    EXPECT_EQ(on.output,
              "Background checks are on. Agent registration: requires approval.\n"
              "Allow Brimstell in System Settings → General → Login Items.\n");
    status = nlohmann::json::parse(s.run({"agent", "status", "--json"}).output);
    EXPECT_EQ(status["blockedInSettings"], true);
}

TEST(CliEndToEnd, AgentRunSaysWhatItDid) {
    CliSandbox s;
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.d", "/bin/true");
    auto first = s.run({"agent", "run"});
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.output,
              "Jobs due: history, lowDisk, leftovers, loginItems\n"
              "leftovers: recorded 0 installed apps to compare with next time\n"
              "login items: recorded 1 to compare with next time\n"
        "junk: 0 bytes that Auto Clean may take\n"
              "Alerts sent: none\n"
              "Wrote " + s.mac.home() + "/Library/Preferences/com.quorv.brimstell.plist\n"
              "Wrote " + s.mac.home() + "/Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell/widget.json\n");
    s.mac.addLaunchItem("/Library/LaunchAgents", "com.example.new", "/bin/true");
    const auto second = nlohmann::json::parse(s.run({"agent", "run", "--json"}).output);
    ASSERT_EQ(second["alerts"].size(), 1u);
    EXPECT_EQ(second["alerts"][0]["title"], "com.example.new now starts with your Mac");
}

TEST(CliEndToEnd, DemoLaysOutASandboxAndPrintsItsVariables) {
    testing_support::TempDir dir;
    const std::string where = dir / "demo mac";
    const auto r = runProgram(BRIMSTELL_CLI_EXE, {"demo", where}, {});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "export BRIMSTELL_OUTBOX='" + where + "/notifications.jsonl'\n"
                        "export BRIMSTELL_PLATFORM=mac\n"
                        "export BRIMSTELL_ROOT='" + where + "'\n"
                        "export HOME='" + where + "/Users/ann'\n");
    EXPECT_TRUE(std::filesystem::exists(where + "/Users/ann/Library/LaunchAgents/com.example.editor.updater.plist"));
    EXPECT_TRUE(std::filesystem::exists(where + "/Applications/Example.app/Contents/Info.plist"));
    EXPECT_EQ(runProgram(BRIMSTELL_CLI_EXE, {"demo", where}, {}).status, 0) << "a demo Mac may be laid out again";

    const std::string occupied = dir / "occupied";
    std::filesystem::create_directories(occupied + "/mine");
    EXPECT_EQ(runProgram(BRIMSTELL_CLI_EXE, {"demo", occupied}, {}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(occupied + "/Users"));
}

}  // namespace
