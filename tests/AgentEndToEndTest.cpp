// Runs the built brimstell-agent against sandbox Macs and checks what it leaves behind.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "kit/files/FS.hpp"
#include "support/TestSupport.hpp"
#include "support/posix/Files.hpp"
#include "support/settings/PlistFileStore.hpp"
#include "support/settings/Value.hpp"

namespace {

using testing_support::readText;
using testing_support::runProgram;

struct AgentSandbox {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");
    std::string outbox = dir / "outbox.jsonl";

    std::string settingsFile() const { return mac.home() + "/Library/Preferences/com.quorv.brimstell.plist"; }
    std::string widgetFile() const {
        return mac.home() + "/Library/Group Containers/K3Q8ZT2WMX.com.quorv.brimstell/widget.json";
    }
    quorv::PlistFileStore settings() const { return quorv::PlistFileStore(settingsFile()); }

    testing_support::RunResult run(std::optional<std::string> serviceName = "com.quorv.brimstell.agent") const {
        auto env = mac.environment();
        env["BRIMSTELL_OUTBOX"] = outbox;
        env["BRIMSTELL_NOW"] = "1790000000";
        if (serviceName) env["XPC_SERVICE_NAME"] = *serviceName;
        return runProgram(BRIMSTELL_AGENT_EXE, {}, env);
    }

    std::vector<nlohmann::json> alerts() const {
        std::vector<nlohmann::json> out;
        for (const auto& line : testing_support::linesOf(outbox)) out.push_back(nlohmann::json::parse(line));
        return out;
    }
};

TEST(AgentEndToEnd, AnotherServiceNameLeavesNothing) {
    AgentSandbox s;
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.d", "/bin/true");
    const auto r = s.run("com.apple.something.else");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "");
    EXPECT_FALSE(std::filesystem::exists(s.settingsFile()));
    EXPECT_FALSE(std::filesystem::exists(s.widgetFile()));
    EXPECT_FALSE(std::filesystem::exists(s.outbox));
}

TEST(AgentEndToEnd, FirstRunRemembersLoginItemsAndSendsNothing) {
    AgentSandbox s;
    const std::string a = s.mac.addLaunchItem("~/Library/LaunchAgents", "com.example.a", "/bin/true");
    const std::string b = s.mac.addLaunchItem("/Library/LaunchAgents", "com.example.b", "/bin/true");
    const std::string c = s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.c", "/bin/true");
    const auto r = s.run();
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, "") << "silent when not on a terminal";
    auto store = s.settings();
    // Stored sorted: the sandbox root's own folders sort before its Users folder.
    EXPECT_EQ(store.stringArray("agent.loginItems"), (std::vector<std::string>{b, c, a}));
    EXPECT_TRUE(s.alerts().empty());
}

TEST(AgentEndToEnd, NewLaunchItemsAlertOnceEach) {
    AgentSandbox s;
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.old", "/bin/true");
    ASSERT_EQ(s.run().status, 0);

    s.mac.addLaunchItem("~/Library/LaunchAgents", "com.example.sneaky", "/bin/true");
    ASSERT_EQ(s.run().status, 0);
    auto alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0]["title"], "com.example.sneaky now starts with your Mac");
    EXPECT_EQ(alerts[0]["body"], "Open Brimstell → Startup & Security → Startup to see what they are.");

    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.alerts().size(), 1u) << "nothing new, nothing sent";

    s.mac.addLaunchItem("/Library/LaunchAgents", "com.example.x", "/bin/true");
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.y", "/bin/true");
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.z", "/bin/true");
    std::filesystem::remove(s.mac.path("/Library/LaunchDaemons/com.example.old.plist"));
    ASSERT_EQ(s.run().status, 0);
    alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 2u);
    EXPECT_EQ(alerts[1]["title"], "3 new items start with your Mac");
    EXPECT_EQ(alerts[1]["body"], "Open Brimstell → Startup & Security → Startup to see what they are.");
    EXPECT_NE(alerts[0]["id"], alerts[1]["id"]);

    s.settings().set("warnLoginItems", false);
    s.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.quiet", "/bin/true");
    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.alerts().size(), 2u) << "switched off";
}

TEST(AgentEndToEnd, LowDiskAlertsOnceThenClears) {
    AgentSandbox s;
    const auto volume = brimstell::FS::volumeStats(s.mac.root());
    ASSERT_GT(volume.free, 2'000'000'000) << "the test needs a couple of gigabytes free";
    // A threshold far above the real free space.
    s.settings().set("warnLowDiskGB", std::int64_t{volume.free / 1'000'000'000 + 100'000});
    ASSERT_EQ(s.run().status, 0);
    auto alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0]["title"], "Your disk is almost full");
    const std::string body = alerts[0]["body"];
    EXPECT_EQ(body.rfind("Only ", 0), 0u) << body;
    EXPECT_NE(body.find(" free on Macintosh HD. Open Brimstell to make room."), std::string::npos) << body;
    EXPECT_TRUE(s.settings().boolean("agent.alarm.lowDisk"));

    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.alerts().size(), 1u) << "latched: no second alert";

    s.settings().set("warnLowDiskGB", 0);
    ASSERT_EQ(s.run().status, 0);
    EXPECT_FALSE(s.settings().object("agent.alarm.lowDisk").has_value());
    EXPECT_EQ(s.alerts().size(), 1u);
}

TEST(AgentEndToEnd, WidgetSnapshotHoldsItsKeys) {
    AgentSandbox s;
    s.settings().set("widget.lastClean", 1'789'000'000.0);
    s.settings().set("widget.lastFreed", 4'200'000);
    ASSERT_EQ(s.run().status, 0);
    const auto j = nlohmann::json::parse(readText(s.widgetFile()));
    std::vector<std::string> keys;
    for (auto it = j.begin(); it != j.end(); ++it) keys.push_back(it.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"diskFailing", "junk", "lastClean", "lastFreed", "updated"}));
    EXPECT_EQ(j["junk"], 0);
    EXPECT_EQ(j["lastClean"], 1'789'000'000.0);
    EXPECT_EQ(j["lastFreed"], 4'200'000);
    EXPECT_EQ(j["diskFailing"], false);
    EXPECT_EQ(j["updated"], 1'790'000'000.0);
}

TEST(AgentEndToEnd, SwitchedOffWarningLosesItsLatch) {
    AgentSandbox s;
    s.settings().set("agent.alarm.diskHealth", true);
    s.settings().set("agent.alarm.lowDisk", true);
    s.settings().set("warnLowDisk", false);
    ASSERT_EQ(s.run().status, 0);
    EXPECT_FALSE(s.settings().object("agent.alarm.diskHealth").has_value()) << "warnDiskHealth is off by default";
    EXPECT_FALSE(s.settings().object("agent.alarm.lowDisk").has_value());
}

std::vector<nlohmann::json> titled(const std::vector<nlohmann::json>& alerts, const std::string& start) {
    std::vector<nlohmann::json> out;
    for (const auto& a : alerts) {
        if (a["title"].get<std::string>().rfind(start, 0) == 0) out.push_back(a);
    }
    return out;
}

TEST(AgentEndToEnd, AutoCleanRunsWhenDueAndAlertsOnce) {
    AgentSandbox s;
    const auto cache = s.mac.writeFileOfSize("~/Library/Caches/com.example.app/blob", 3'000'000);
    s.settings().set("autoClean.enabled", true);
    s.settings().set("autoClean.lastRun", 1'790'000'000.0 - 8 * 86'400);  // weekly: due a day ago
    ASSERT_EQ(s.run().status, 0);
    EXPECT_FALSE(std::filesystem::exists(cache));
    auto freed = titled(s.alerts(), "Auto Clean freed ");
    ASSERT_EQ(freed.size(), 1u);
    EXPECT_EQ(freed[0]["body"], "Everything it moved is in History, ready to restore.");
    EXPECT_EQ(s.settings().number("autoClean.lastRun"), 1'790'000'000.0);
    EXPECT_GE(s.settings().integer("autoClean.lastFreed"), 3'000'000);

    // The next hour it is not due: nothing moves, nothing is said again.
    const auto log = s.mac.writeFileOfSize("~/Library/Logs/new.log", 1'000'000);
    ASSERT_EQ(s.run().status, 0);
    EXPECT_TRUE(std::filesystem::exists(log));
    EXPECT_EQ(titled(s.alerts(), "Auto Clean freed ").size(), 1u);
}

TEST(AgentEndToEnd, JunkIsMeasuredForTheWidgetAtMostEverySixHours) {
    AgentSandbox s;
    s.mac.writeFileOfSize("~/Library/Caches/com.example.app/blob", 3'000'000);
    s.mac.writeFileOfSize("~/Library/Developer/Xcode/Archives/A/x", 9'000'000);  // not Auto Clean's
    ASSERT_EQ(s.run().status, 0);
    auto junk = [&] { return nlohmann::json::parse(readText(s.widgetFile()))["junk"].get<std::int64_t>(); };
    const auto first = junk();
    EXPECT_GE(first, 3'000'000);
    EXPECT_LT(first, 9'000'000);
    EXPECT_EQ(s.settings().number("agent.junkMeasured"), 1'790'000'000.0);

    s.mac.writeFileOfSize("~/Library/Logs/more.log", 2'000'000);
    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(junk(), first) << "measured less than six hours ago: the widget keeps the figure";

    s.settings().set("agent.junkMeasured", 1'790'000'000.0 - 21'601);
    ASSERT_EQ(s.run().status, 0);
    EXPECT_GE(junk(), first + 2'000'000);
}

// The installed apps are remembered; leftovers are looked for only in a run that finds one gone.
TEST(AgentEndToEnd, LeftoversAlertOnlyAfterAnAppIsRemoved) {
    AgentSandbox s;
    s.mac.addApp("/Applications/Photo Studio.app", {.bundleID = "com.example.PhotoStudio", .name = "Photo Studio"});
    s.mac.addApp("/Applications/Utilities/Editor.app", {.bundleID = "com.example.editor", .name = "Editor"});
    s.mac.writeFileOfSize("~/Library/Application Support/com.example.photostudio/Library.db", 6'000'000);
    s.mac.writeFileOfSize("~/Library/Caches/com.old.thing/blob", 3'000'000);  // removed before the first run
    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.settings().stringArray("agent.installedApps"),
              (std::vector<std::string>{"com.example.editor", "com.example.photostudio"}));
    EXPECT_TRUE(s.alerts().empty()) << "the first run only records";

    ASSERT_EQ(s.run().status, 0);
    EXPECT_TRUE(s.alerts().empty()) << "no app has gone: the Library isn't looked at";

    std::filesystem::remove_all(s.mac.path("/Applications/Photo Studio.app"));
    ASSERT_EQ(s.run().status, 0);
    auto alerts = s.alerts();
    ASSERT_EQ(alerts.size(), 1u);
    const std::string title = alerts[0]["title"];
    EXPECT_TRUE(title.starts_with("Removed apps left 9")) << title << ": both groups count, not only the app just gone";
    EXPECT_TRUE(title.ends_with(" MB behind")) << title;
    EXPECT_EQ(alerts[0]["body"], "Open Brimstell → Applications → Leftovers to clear it.");
    EXPECT_EQ(s.settings().stringArray("agent.installedApps"), std::vector<std::string>{"com.example.editor"});

    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.alerts().size(), 1u) << "gone once, alerted once";

    s.settings().set("warnLeftovers", false);
    s.mac.addApp("/Applications/Quiet.app", {.bundleID = "com.example.quiet", .name = "Quiet"});
    ASSERT_EQ(s.run().status, 0);
    EXPECT_EQ(s.settings().stringArray("agent.installedApps"), std::vector<std::string>{"com.example.editor"})
        << "switched off: not looked at";
}

}  // namespace

// On Linux the watch has its own list: one recorded before it looked at units and autostart
// entries (the Mac folders, absent there) makes nothing look new; the next new entry does.
TEST(AgentEndToEnd, LinuxStartupItemsAreComparedWithTheirOwnList) {
    testing_support::TempDir dir;
    const std::string home = dir / "home/ann";
    const std::string autostart = home + "/.config/autostart/";
    quorv::files::makeFolders(autostart);
    quorv::files::writeAtomically(autostart + "notes.desktop", "[Desktop Entry]\nType=Application\nExec=notes\n");
    quorv::PlistFileStore settings(home + "/.config/brimstell/settings.plist");
    settings.set("agent.loginItems", quorv::Value::strings({}));
    const std::map<std::string, std::string> env = {{"BRIMSTELL_ROOT", dir.path()}, {"BRIMSTELL_PLATFORM", "linux"},
                                                    {"HOME", home}, {"BRIMSTELL_OUTBOX", dir / "outbox.jsonl"},
                                                    {"BRIMSTELL_NOW", "1790000000"}, {"TZ", "UTC"}};
    const auto titles = [&] {
        std::vector<std::string> out;
        for (const auto& line : testing_support::linesOf(dir / "outbox.jsonl")) out.push_back(nlohmann::json::parse(line)["title"]);
        return out;
    };
    auto r = testing_support::runProgram(BRIMSTELL_AGENT_EXE, {}, env);
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(titles(), std::vector<std::string>{});
    EXPECT_EQ(quorv::PlistFileStore(home + "/.config/brimstell/settings.plist").stringArray("agent.startupItems"),
              (std::vector<std::string>{autostart + "notes.desktop"}));

    quorv::files::writeAtomically(autostart + "sync.desktop", "[Desktop Entry]\nType=Application\nExec=sync\n");
    r = testing_support::runProgram(BRIMSTELL_AGENT_EXE, {}, env);
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(titles(), std::vector<std::string>{"sync now starts with your computer"});
}
