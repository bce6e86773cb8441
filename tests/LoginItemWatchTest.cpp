#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "kit/agent/LoginItemWatch.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::LoginItemWatch;

TEST(LoginItemWatch, ListsPlistEntriesOfTheThreeFolders) {
    testing_support::SandboxHost sandbox;
    quorv::HostScope scope(sandbox.host);
    auto& mac = sandbox.mac;
    const std::string user = mac.addLaunchItem("~/Library/LaunchAgents", "com.example.a", "/bin/true");
    const std::string agent = mac.addLaunchItem("/Library/LaunchAgents", "com.example.b", "/bin/true");
    const std::string daemon = mac.addLaunchItem("/Library/LaunchDaemons", "com.example.c", "/bin/true");
    const std::string lineFeed = mac.writeFile("/Library/LaunchDaemons/odd\nname.plist", "x");
    mac.writeFile("/Library/LaunchDaemons/upper.PLIST", "x");
    mac.writeFile("/Library/LaunchDaemons/.plist", "x");
    mac.writeFile("/Library/LaunchDaemons/backup.plist.bak", "x");
    mac.writeFile("/Library/LaunchDaemons/nested/deep.plist", "x");
    mac.writeFile("/Library/Other/elsewhere.plist", "x");

    EXPECT_EQ(LoginItemWatch::current(), (std::set<std::string>{user, agent, daemon, lineFeed}));
    EXPECT_EQ(LoginItemWatch::places(),
              (std::vector<std::string>{mac.home() + "/Library/LaunchAgents", mac.root() + "/Library/LaunchAgents",
                                        mac.root() + "/Library/LaunchDaemons"}));
}

TEST(LoginItemWatch, UnreadableOrMissingFolderContributesNothing) {
    testing_support::SandboxHost sandbox;
    quorv::HostScope scope(sandbox.host);
    const std::string item = sandbox.mac.addLaunchItem("/Library/LaunchDaemons", "com.example.c", "/bin/true");
    std::filesystem::remove_all(sandbox.mac.path("~/Library/LaunchAgents"));
    EXPECT_EQ(LoginItemWatch::current(), std::set<std::string>{item});
}

TEST(LoginItemWatch, AddedAndNames) {
    const std::set<std::string> now = {"/a/x.plist", "/a/y.plist"};
    EXPECT_TRUE(LoginItemWatch::added(std::nullopt, now).empty()) << "the first look never alerts";
    EXPECT_EQ(LoginItemWatch::added(std::set<std::string>{"/a/x.plist", "/a/gone.plist"}, now),
              std::set<std::string>{"/a/y.plist"});
    EXPECT_TRUE(LoginItemWatch::added(now, now).empty());

    const struct {
        const char* entry;
        const char* name;
    } names[] = {
        {"/Library/LaunchDaemons/com.example.backupd.plist", "com.example.backupd"},
        {"/Users/ann/Library/LaunchAgents/Updater.plist", "Updater"},
        {"/x/with space.plist", "with space"},
    };
    for (const auto& n : names) EXPECT_EQ(LoginItemWatch::displayName(n.entry), n.name);
}

}  // namespace
