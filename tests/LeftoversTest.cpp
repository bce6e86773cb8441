// Leftovers of removed apps: which Library names are identifiers, which belong to no installed
// app, the groups, and the list's clean with its texts.

#include <gtest/gtest.h>

#include <functional>

#include <filesystem>

#include "kit/agent/Agent.hpp"
#include "kit/cleaning/Leftovers.hpp"
#include "kit/cleaning/LeftoversModel.hpp"
#include "kit/files/History.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::LeftoverGroup;
using brimstell::Leftovers;
using brimstell::LeftoversModel;

TEST(Leftovers, IdentifiersFromNames) {
    const struct {
        const char* name;
        const char* id;  // nullptr: none
    } cases[] = {
        {"com.example.app", "com.example.app"},
        {"com.example.app.plist", "com.example.app"},
        {"com.example.app.savedState", "com.example.app"},
        {"com.example.app.binarycookies", "com.example.app"},
        {"com.example.app.plist.plist", "com.example.app.plist"},
        {"Com.Example.App", "Com.Example.App"},
        {"com.example-app_2.x", "com.example-app_2.x"},
        {"1.2.3", "1.2.3"},
        {"a..b.c", "a..b.c"},
        {"Google", nullptr},
        {"My.Own Folder", nullptr},
        {"com.example", nullptr},
        {"com.example.plist", nullptr},
        {"com..example", nullptr},
        {".com.example.app", nullptr},
        {".plist", nullptr},
        {"", nullptr},
        {"com.exa mple.app", nullptr},
        {"com.example.app\n", nullptr},
        {"com.example.app\t", nullptr},
        {"com.example.caf\xC3\xA9", nullptr},
        {"com.example.app\xFF", nullptr},
        {"com.example.app~", nullptr},
        {"com/example.app.x", nullptr},
    };
    for (const auto& c : cases) {
        const auto id = Leftovers::bundleID(c.name);
        if (c.id) {
            EXPECT_EQ(id, c.id) << c.name;
        } else {
            EXPECT_FALSE(id) << c.name << " gave " << id.value_or("");
        }
    }
}

TEST(Leftovers, KeptAndDisplayNames) {
    const std::set<std::string> installed = {"com.example.app"};
    const struct {
        const char* id;
        bool kept;
    } kept[] = {
        {"com.example.app", true},         {"com.example.app.helper", true}, {"com.example.application", false},
        {"com.apple.safari", true},        {"com.applex.tool", false},       {"org.example.app", false},
        {"com.example.app.", true},        {"com.example", false},
        {"com.quorv.brimstell", true},     {"com.quorv.brimstell.agent", true}, {"com.quorv.brimstellar", false},
    };
    for (const auto& k : kept) EXPECT_EQ(Leftovers::isKept(k.id, installed), k.kept) << k.id;

    const struct {
        const char* id;
        const char* name;
    } names[] = {{"com.spotify.client", "Client"}, {"com.example.photostudio", "Photostudio"},
                 {"com.example.my-app", "My-app"}, {"com.example.APP", "App"}, {"com.example.app.", "App"}};
    for (const auto& n : names) EXPECT_EQ(Leftovers::displayName(n.id), n.name) << n.id;
}

TEST(Leftovers, RunningAppsFromTheProcessList) {
    const std::string ps =
        "/sbin/launchd\n"
        "/Users/ann/Downloads/Runner.app/Contents/MacOS/Runner\n"
        "/Applications/Big.app/Contents/Frameworks/Helper.app/Contents/MacOS/Helper (Renderer)\n"
        "Runner.app/Contents/MacOS/Runner\n"
        "/usr/libexec/Contents/MacOS/x\n"
        "/Applications/Spaced Name.app/Contents/MacOS/Spaced Name";
    EXPECT_EQ(Leftovers::runningAppFolders(ps),
              (std::set<std::string>{"/Applications/Big.app/Contents/Frameworks/Helper.app",
                                     "/Applications/Spaced Name.app", "/Users/ann/Downloads/Runner.app"}));
}

TEST(Leftovers, InstalledFromThreePlacesAndWhatRuns) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    mac.addApp("/Applications/Example.app", {.bundleID = "Com.Example.App"});
    mac.addApp("/System/Applications/Calculator.app", {.bundleID = "com.apple.calculator"});
    mac.addApp("~/Applications/Tools/Mine.app", {.bundleID = "com.example.mine"});
    mac.addApp("/Applications/Kit.framework/Nested.app", {.bundleID = "com.example.nested"});
    mac.addApp("/Applications/A/B/Deep.app", {.bundleID = "com.example.deep"});
    mac.addApp("~/Downloads/Runner.app", {.bundleID = "com.example.runner", .name = "Runner"});
    mac.addFakeTool("/bin/ps", "printf '/sbin/launchd\\n/Users/" + mac.user() +
                                   "/Downloads/Runner.app/Contents/MacOS/Runner\\n'");
    EXPECT_EQ(Leftovers::installedIDs(), (std::set<std::string>{"com.apple.calculator", "com.example.app",
                                                                "com.example.mine", "com.example.nested",
                                                                "com.example.runner"}));
}

// The fingerprint moves with what the app folders hold (an app added, removed or renamed, in a
// folder or one level down), within one tick of the file system's clock too, and stays while
// nothing there changed.
TEST(Leftovers, AppFoldersStampMovesWithTheirContents) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    mac.addApp("/Applications/Example.app", {.bundleID = "com.example.app"});
    mac.addApp("/Applications/Tools/Mine.app", {.bundleID = "com.example.mine"});
    namespace fs = std::filesystem;
    const std::function<void()> changes[] = {
        [&] { mac.addApp("~/Applications/New.app", {.bundleID = "com.example.new"}); },
        [&] { fs::rename(mac.path("/Applications/Tools/Mine.app"), mac.path("/Applications/Tools/Yours.app")); },
        [&] { fs::remove_all(mac.path("/Applications/Example.app")); },
        [&] { mac.addApp("/System/Applications/Calculator.app", {.bundleID = "com.apple.calculator"}); },
    };
    std::string before = Leftovers::appFoldersStamp();
    ASSERT_EQ(before.size(), 16u);
    EXPECT_EQ(Leftovers::appFoldersStamp(), before) << "nothing changed";
    for (std::size_t i = 0; i < std::size(changes); ++i) {
        SCOPED_TRACE(i);
        changes[i]();
        const std::string after = Leftovers::appFoldersStamp();
        EXPECT_NE(after, before);
        before = after;
    }
}

TEST(Leftovers, FoundInTheTenFoldersGroupedByApp) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    mac.writeFile("~/Library/Preferences/com.example.app.plist", "kept");
    mac.writeFile("~/Library/Application Support/com.example.app.helper/x", "kept");
    mac.writeFile("~/Library/Caches/COM.APPLE.Safari/x", "kept");
    mac.writeFile("~/Library/Logs/Google/x", "not an identifier");
    mac.writeFile("~/Library/Containers/My.Own Folder/x", "not an identifier");
    mac.writeFile("~/Library/Caches/com.removed.x\n/x", "a line feed");
    mac.writeFile("~/Library/Elsewhere/com.removed.tool/x", "not one of the ten");
    const auto prefs = mac.writeFileOfSize("~/Library/Preferences/com.removed.tool.plist", 4096);
    const auto state = mac.writeFileOfSize("~/Library/Saved Application State/com.removed.Tool.savedState/data", 8192);
    const auto cookies = mac.writeFileOfSize("~/Library/Cookies/com.removed.tool.binarycookies", 4096);
    const auto application = mac.writeFileOfSize("~/Library/Caches/com.example.application/blob", 100'000);
    // A Library folder that is a link is not followed.
    mac.writeFileOfSize("/outside/com.removed.linked/blob", 4096);
    std::filesystem::create_directory_symlink(mac.path("/outside"), mac.path("~/Library/WebKit"));

    const auto groups = Leftovers::find(mac.path("~/Library"), {"com.example.app"});
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0].bundleID, "com.example.application");
    EXPECT_EQ(groups[0].name, "Application");
    ASSERT_EQ(groups[0].items.size(), 1u);
    EXPECT_EQ(groups[0].items[0].location, mac.path("~/Library/Caches/com.example.application"));
    EXPECT_EQ(groups[0].items[0].label, "Caches/com.example.application");
    EXPECT_GE(groups[0].items[0].size, 100'000);

    EXPECT_EQ(groups[1].name, "Tool");
    std::vector<std::string> labels;
    for (const auto& item : groups[1].items) labels.push_back(item.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"Preferences/com.removed.tool.plist",
                                                "Saved Application State/com.removed.Tool.savedState",
                                                "Cookies/com.removed.tool.binarycookies"}))
        << "in the order of the ten folders";
    EXPECT_GE(groups[1].size(), 4096 + 8192 + 4096);
    EXPECT_EQ(groups[1].selectedSize(), groups[1].size());
    (void)prefs, (void)state, (void)cookies, (void)application;

    EXPECT_TRUE(Leftovers::find(mac.path("~/Missing"), {}).empty());
}

TEST(LeftoversModel, ScanTickCleanAndTheTexts) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    mac.addApp("/Applications/Example.app", {.bundleID = "com.example.app"});
    mac.writeFileOfSize("~/Library/Caches/com.example.app/x", 10'000);
    const auto a = mac.writeFileOfSize("~/Library/Application Support/com.removed.tool/data", 1'000'000);
    const auto b = mac.writeFileOfSize("~/Library/Caches/com.removed.tool/blob", 200'000);
    const auto c = mac.writeFileOfSize("~/Library/Logs/com.other.gone/log", 300'000);

    LeftoversModel model;
    EXPECT_EQ(model.status(), "Click Scan to find what removed apps left behind.");
    model.scan();
    ASSERT_EQ(model.groups.size(), 2u);
    EXPECT_EQ(model.groups[0].name, "Gone");
    EXPECT_EQ(model.groups[1].name, "Tool");
    model.groups[0].items[0].selected = false;  // com.other.gone stays
    model.recount();
    EXPECT_EQ(model.total, model.groups[1].size());
    EXPECT_EQ(model.status(), "");

    std::filesystem::remove(b);  // vanishes between the scan and the clean
    std::filesystem::remove(mac.path("~/Library/Caches/com.removed.tool"));
    const auto result = model.trashSelected();
    EXPECT_EQ(result.moved, 1u);
    EXPECT_EQ(result.skippedLocations, std::vector<std::string>{mac.path("~/Library/Caches/com.removed.tool")});
    EXPECT_FALSE(std::filesystem::exists(a));
    EXPECT_TRUE(std::filesystem::exists(c)) << "not ticked";
    EXPECT_EQ(model.message, "Moved 1 MB to the Trash, 1 leftovers skipped");
    ASSERT_EQ(model.groups.size(), 2u) << "the skipped item keeps its group";

    const auto sessions = brimstell::History::shared().sessions();
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0].source, "Leftovers");
    EXPECT_EQ(sessions[0].entries.size(), 1u);
}

TEST(LeftoversModel, Texts) {
    EXPECT_EQ(LeftoversModel::confirmText(12'000'000), "Move 12 MB of leftovers to the Trash?");
    EXPECT_EQ(LeftoversModel::resultLine(1'200'000, 0), "Moved 1.2 MB to the Trash");
    EXPECT_EQ(LeftoversModel::resultLine(0, 3), "Moved 0 bytes to the Trash, 3 leftovers skipped");
    EXPECT_STREQ(LeftoversModel::confirmNote, "They stay restorable from Cleaning History until the Trash is emptied.");
}

// The agent's alert: more than five million bytes in all, one group by its name, several together.
TEST(AgentLeftovers, AlertTitlesAndTheBoundary) {
    const auto group = [](const char* name, std::vector<std::int64_t> sizes) {
        LeftoverGroup g;
        g.name = name;
        for (const auto size : sizes) {
            brimstell::FileItem item;
            item.size = size;
            item.selected = false;
            g.items.push_back(item);
        }
        return g;
    };
    const char* body = "Open Brimstell → Applications → Leftovers to clear it.";
    const struct {
        std::vector<LeftoverGroup> groups;
        const char* title;  // nullptr: no alert
    } cases[] = {
        {{}, nullptr},
        {{group("Tool", {5'000'000})}, nullptr},
        {{group("Tool", {4'000'000, 1'000'001})}, "Tool left 5 MB behind"},
        {{group("Tool", {2'500'000}), group("Gone", {2'500'000})}, nullptr},
        {{group("Tool", {2'500'000}), group("Gone", {2'500'001})}, "Removed apps left 5 MB behind"},
        {{group("Photostudio", {12'340'000, -5})}, "Photostudio left 12.3 MB behind"},
    };
    for (const auto& c : cases) {
        const auto alert = brimstell::Agent::leftoversAlert(c.groups);
        if (!c.title) {
            EXPECT_FALSE(alert) << alert->first;
            continue;
        }
        ASSERT_TRUE(alert) << c.title;
        EXPECT_EQ(alert->first, c.title);
        EXPECT_EQ(alert->second, body);
    }
}

// On Linux the leftovers are the data folders of Flatpak apps that were uninstalled.
TEST(Leftovers, OnLinuxTheDataOfRemovedFlatpaks) {
    testing_support::SandboxHost sh;
    auto onLinux = std::make_shared<quorv::Host>(*sh.host);
    onLinux->platform = quorv::Platform::linux;
    quorv::HostScope scope(onLinux);
    auto& mac = sh.mac;
    const auto gone = mac.writeFileOfSize("~/.var/app/org.example.Gone/data/db", 50'000);
    mac.writeFile("~/.var/app/org.gnome.Calculator/config/x", "kept");
    mac.writeFile("~/.var/app/org.example.Extra/config/x", "kept");
    mac.writeFile("~/.var/app/org.example.File", "not a folder");
    mac.writeFile("~/.var/app/not an id/x", "not an identifier");
    LeftoversModel before;
    before.scan();
    EXPECT_TRUE(before.groups.empty()) << "no Flatpak installation: what is installed can't be told";
    EXPECT_EQ(before.status(), "No removed app left anything in ~/.var/app.");

    mac.makeFolder("/var/lib/flatpak/app/org.gnome.Calculator/current");
    mac.makeFolder("~/.local/share/flatpak/app/com.example.Mine");
    mac.writeFile("/etc/flatpak/installations.d/extra.conf", "[Installation \"extra\"]\n  Path=/opt/flatpak\nDisplayName=Extra\n");
    mac.makeFolder("/opt/flatpak/app/org.example.Extra");
    EXPECT_EQ(Leftovers::installedIDs(),
              (std::set<std::string>{"com.example.mine", "org.example.extra", "org.gnome.calculator"}));
    const auto groups = Leftovers::findHere(Leftovers::installedIDs());
    ASSERT_EQ(groups.size(), 1u);
    EXPECT_EQ(groups[0].name, "Gone");
    ASSERT_EQ(groups[0].items.size(), 1u);
    EXPECT_EQ(groups[0].items[0].location, mac.home() + "/.var/app/org.example.Gone");
    EXPECT_EQ(groups[0].items[0].label, "org.example.Gone");
    EXPECT_GE(groups[0].items[0].size, 50'000);
    (void)gone;
}

}  // namespace
