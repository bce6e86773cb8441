// `brimstell startup` against a sandbox Mac: the listing, its JSON, the switches and the removal.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "kit/sandbox/SandboxStartup.hpp"
#include "support/TestSupport.hpp"

namespace {


struct StartupCli : testing_support::CliMac {
    StartupCli() { brimstell::addStartupItems(mac); }
};

TEST(StartupCli, ListsBySectionWithNotes) {
    StartupCli s;
    const auto r = s.run({"startup"});
    ASSERT_EQ(r.status, 0) << r.errors;
    for (const char* text : {"Launch Agents in your account\n", "Launch Agents for everyone on this Mac\n",
                             "Launch Daemons, run as the system\n", "Apps that open when you log in\n",
                             "Helpers that apps start in the background\n", "  Example Menu  (on)\n    in Example Editor\n",
                             "    ! Left behind by an app you removed\n", "  Change in System Settings → Login Items\n",
                             "    Example Software Ltd · Notarised\n", "    listed as Example Menu Helper\n"}) {
        EXPECT_NE(r.output.find(text), std::string::npos) << text << "\n" << r.output;
    }
}

TEST(StartupCli, JsonAndSwitches) {
    StartupCli s;
    auto r = s.run({"startup", "--json"});
    ASSERT_EQ(r.status, 0) << r.errors;
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_TRUE(j["loginKnown"].get<bool>());
    ASSERT_EQ(j["items"].size(), 6u);
    EXPECT_EQ(j["items"][4]["label"], "com.example.editor.updater");
    EXPECT_EQ(j["items"][4]["signature"]["kind"], "developerID");
    EXPECT_EQ(j["items"][4]["scope"], "user");
    EXPECT_EQ(j["login"][1]["appName"], "Example Editor");

    r = s.run({"startup", "disable", "com.example.editor.updater"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.output, "Example is switched off\n");
    r = s.run({"startup", "--json"});
    EXPECT_FALSE(nlohmann::json::parse(r.output)["items"][4]["enabled"].get<bool>());
    r = s.run({"startup", "enable", "com.nothing.here"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "brimstell: no launch item is labelled com.nothing.here\n");
    EXPECT_EQ(s.run({"startup", "enable"}).status, 2);
}

TEST(StartupCli, RemovesOnlyALeftover) {
    StartupCli s;
    auto r = s.run({"startup", "remove", "com.example.backupd", "--yes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "brimstell: Only an item whose app is gone can be removed here\n");
    r = s.run({"startup", "remove", "com.gone.syncer", "--yes"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("Removed Gone Sync\n"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(s.mac.path("~/Library/LaunchAgents/com.gone.syncer.plist")));
    r = s.run({"history", "--json"});
    EXPECT_NE(r.output.find("com.gone.syncer.plist"), std::string::npos) << r.output;
}

}  // namespace
