// The start-up items of a sandbox Mac end to end: the scan over the fake launchctl and sfltool
// with recorded signatures, the switches, the removal of a leftover and what deserves a look.

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "kit/insight/BackgroundModel.hpp"
#include "kit/sandbox/SandboxStartup.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::BackgroundItem;
using brimstell::BackgroundItems;
using brimstell::BackgroundModel;
using brimstell::LoginItem;
namespace fs = std::filesystem;

struct Startup : ::testing::Test {
    testing_support::SandboxHost sandbox;
    quorv::HostScope scope{sandbox.host};
    void SetUp() override { brimstell::addStartupItems(sandbox.mac); }
    // The plists are born now, by the real clock.
    static double later(double days) { return static_cast<double>(::time(nullptr)) + days * 86400; }
    std::string summary(const BackgroundItem* item) const {
        return item && item->signature ? item->signature->summary() : "(none)";
    }
};

TEST_F(Startup, ScansTheFoldersWithSignaturesSwitchesAndNames) {
    BackgroundModel model;
    model.load();
    EXPECT_EQ(model.loginNote, "");
    std::vector<std::string> shown;
    for (const auto& i : model.scan.items) shown.push_back(i.shownName());
    EXPECT_EQ(shown, (std::vector<std::string>{"com.apple.example.diagnostics", "com.example.backupd", "com.example.menuhelper",
                                                "com.example.printerd", "Example", "Gone Sync"}));
    const auto* updater = model.find("com.example.editor.updater");
    ASSERT_TRUE(updater);
    EXPECT_EQ(updater->scope, BackgroundItem::Scope::user);
    EXPECT_TRUE(updater->running);
    EXPECT_TRUE(updater->enabled);
    EXPECT_EQ(summary(updater), "Example Software Ltd · Notarised");
    const auto* menu = model.find("com.example.menuhelper");
    ASSERT_TRUE(menu);
    EXPECT_FALSE(menu->enabled);
    EXPECT_FALSE(menu->running) << "a '-' process id";
    EXPECT_EQ(menu->listedName, "Example Menu Helper");
    EXPECT_EQ(summary(menu), "Signed by “Sam Example”, not a developer Apple has identified");
    EXPECT_EQ(summary(model.find("com.example.backupd")), "Example Software Ltd · Not notarised");
    EXPECT_TRUE(model.find("com.example.backupd")->running);
    EXPECT_FALSE(model.find("com.example.printerd")->running) << "process id 0 is no process";
    EXPECT_EQ(summary(model.find("com.example.printerd")), "Not signed");
    EXPECT_EQ(summary(model.find("com.apple.example.diagnostics")), "Apple");
    const auto* gone = model.find("com.gone.syncer");
    EXPECT_EQ(summary(gone), "(none)");
    EXPECT_EQ(gone->notes(later(8)), std::vector<std::string>{"Left behind by an app you removed"});
}

TEST_F(Startup, LoginItemsOfTheUserOnly) {
    BackgroundModel model;
    model.load();
    ASSERT_TRUE(model.scan.loginKnown);
    ASSERT_EQ(model.scan.login.size(), 3u);
    const auto& editor = model.scan.login[0];
    EXPECT_EQ(editor.name, "Example Editor");
    EXPECT_EQ(editor.kind, LoginItem::Kind::app);
    EXPECT_EQ(editor.url, sandbox.mac.path("/Applications/Example.app"));
    const auto& menu = model.scan.login[1];
    EXPECT_EQ(menu.name, "Example Menu");
    EXPECT_EQ(menu.kind, LoginItem::Kind::inside);
    EXPECT_EQ(menu.appName, "Example Editor");
    EXPECT_EQ(menu.url, sandbox.mac.path("/Applications/Example.app") + "/Contents/Library/LoginItems/Example Menu.app");
    ASSERT_TRUE(menu.signature);
    EXPECT_EQ(menu.signature->summary(), "Apple Mac OS Application Signing · App Store");
    const auto& agent = model.scan.login[2];
    EXPECT_EQ(agent.name, "Old Sync Agent");
    EXPECT_EQ(agent.appURL, sandbox.mac.path("/Applications/Old Sync.app"));
    EXPECT_TRUE(agent.worthALook()) << "unsigned, and its app is gone";
    EXPECT_FALSE(editor.worthALook());
}

TEST_F(Startup, WorthALookCountsTheWeekTheSignaturesAndTheGone) {
    BackgroundModel model;
    model.load();
    // Every plist was just written: all six are new while the clock stands at their birth.
    sandbox.setNow(later(0));
    EXPECT_EQ(model.worthALook(), 7u);
    sandbox.setNow(later(8));
    // The helper (other certificate), the ad-hoc printer daemon, the leftover; the old agent.
    EXPECT_EQ(model.worthALook(), 4u);
}

TEST_F(Startup, SwitchesOffAndOnThroughLaunchctlAndTheHelper) {
    BackgroundModel model;
    model.load();
    const auto updater = *model.find("com.example.editor.updater");
    ASSERT_TRUE(model.toggle(updater));
    EXPECT_FALSE(model.find("com.example.editor.updater")->enabled);
    const auto log = testing_support::readText(sandbox.mac.path("/private/var/log/tools.log"));
    const std::string target = "gui/" + std::to_string(sandbox.host->uid) + "/com.example.editor.updater";
    EXPECT_NE(log.find("/bin/launchctl disable " + target + "\n/bin/launchctl bootout " + target + "\n"), std::string::npos) << log;
    EXPECT_TRUE(BackgroundItems::disabled(BackgroundItems::userDomain()).count("com.example.editor.updater"));

    const auto daemon = *model.find("com.example.backupd");
    ASSERT_TRUE(model.toggle(daemon)) << model.message.value_or("");
    EXPECT_TRUE(BackgroundItems::disabled("system").count("com.example.backupd"));
    ASSERT_TRUE(model.toggle(*model.find("com.example.backupd")));
    EXPECT_FALSE(BackgroundItems::disabled("system").count("com.example.backupd"));

    fs::remove(sandbox.mac.path("/bin/launchctl"));
    EXPECT_FALSE(model.toggle(*model.find("com.example.menuhelper")));
    EXPECT_EQ(model.message, "Couldn't change");
}

TEST_F(Startup, RemovesOnlyALeftoverAndPrunesWhatVanished) {
    BackgroundModel model;
    model.load();
    EXPECT_FALSE(model.remove(*model.find("com.example.editor.updater")));
    const auto gone = *model.find("com.gone.syncer");
    ASSERT_TRUE(model.remove(gone)) << model.message.value_or("");
    EXPECT_EQ(model.message, "Removed Gone Sync");
    EXPECT_FALSE(fs::exists(gone.plist));
    EXPECT_FALSE(model.find("com.gone.syncer"));

    fs::remove(model.find("com.example.printerd")->plist);
    model.pruneMissing();
    EXPECT_FALSE(model.find("com.example.printerd"));
    EXPECT_EQ(model.scan.items.size(), 4u);
}

TEST_F(Startup, HostilePlistsAndMissingTools) {
    auto& mac = sandbox.mac;
    mac.writeFile("~/Library/LaunchAgents/nolabel.plist", "<plist><dict><key>Program</key><string>/x</string></dict></plist>");
    mac.writeFile("~/Library/LaunchAgents/garbage.plist", "\x01\x02 not a plist");
    mac.writeFile("~/Library/LaunchAgents/odd\nname.plist",
                  "<plist><dict><key>Label</key><string>odd</string><key>ProgramArguments</key><array>"
                  "<string>relative/tool</string></array></dict></plist>");
    fs::remove(mac.path("/usr/bin/sfltool"));
    BackgroundModel model;
    model.load();
    EXPECT_EQ(model.loginNote, " · Login items couldn't be read");
    EXPECT_FALSE(model.scan.loginKnown);
    const auto* odd = model.find("odd");
    ASSERT_TRUE(odd);
    EXPECT_FALSE(odd->signature);
    EXPECT_TRUE(odd->notes(later(30)).empty()) << "a relative program is never left behind";
    EXPECT_EQ(model.scan.items.size(), 7u);
}

}  // namespace
