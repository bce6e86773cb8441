// `brimstell dev` against a sandbox Mac with the demo's developer tools: the listing, its JSON,
// what is said before anything is deleted for good, and Clean All end to end.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/sandbox/SandboxDeveloper.hpp"
#include "support/TestSupport.hpp"

namespace {

struct DevCli : testing_support::CliMac {
    DevCli() { brimstell::addDeveloperTools(mac); }
    std::vector<std::string> log() const { return testing_support::linesOf(mac.path("/private/var/log/tools.log")); }
};

TEST(DeveloperCli, ListingAndJson) {
    DevCli d;
    auto r = d.run({"dev"});
    ASSERT_EQ(r.status, 0) << r.errors;
    for (const char* text : {"Homebrew\n  Packages you installed, largest first\n    neovim      3.4 MB  0.10.0 → 0.10.1\n",
                             "  Installed as dependencies · 2\n  Old versions and downloads · 41.4 MB\n",
                             "  2 dependencies nothing needs any more: libyaml, m4\n",
                             "  Build Cache      38, 0 active    2.31 GB  2.31 GB reclaimable\n",
                             "  2 simulators whose runtime is gone · 1.21 GB\n",
                             "`brimstell dev clean-all` frees about 4.79 GB. Nothing of it goes to the Trash.\n"}) {
        EXPECT_NE(r.output.find(text), std::string::npos) << text << "\n" << r.output;
    }
    r = d.run({"dev", "--json"});
    ASSERT_EQ(r.status, 0) << r.errors;
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_EQ(j["homebrew"]["packages"][1]["id"], "cask:firefox");
    EXPECT_EQ(j["homebrew"]["packages"][1]["availableVersion"], "121.0");
    EXPECT_EQ(j["docker"]["usage"][2]["kind"], "localVolumes");
    EXPECT_EQ(j["xcode"]["runtimes"][0]["lastUsedAt"], "2026-09-14T08:30:00Z");
    EXPECT_EQ(j["cleanAllBytes"], 4'789'418'752);
}

TEST(DeveloperCli, SaysItIsForGoodBeforeItAsks) {
    DevCli d;
    auto r = d.run({"dev", "prune", "volumes"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.output, "Removes volumes no container uses. Data in them (databases and the like) is gone for good.\n"
                        "This doesn't go to the Trash.\n");
    EXPECT_EQ(r.errors, "brimstell: not deleting without --yes: there is no terminal to ask on\n");
    EXPECT_EQ(d.log(), std::vector<std::string>{});
    r = d.run({"dev", "uninstall", "--yes", "--", "-rf"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.errors, "brimstell: \"-rf\" isn't a package name\n");
    r = d.run({"dev", "simulators", "delete", "not-a-udid", "--yes"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(d.log(), std::vector<std::string>{});
    r = d.run({"dev", "prune", "volumes", "--yes"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("Local Volumes cleared\n"), std::string::npos) << r.output;
}

TEST(DeveloperCli, CleanAllEndToEnd) {
    DevCli d;
    auto r = d.run({"dev", "clean-all", "--dry-run"});
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("Would run:\n  xcrun simctl delete unavailable\n  docker container prune -f\n"
                            "  docker builder prune -a -f\n  brew cleanup\n  brew autoremove\n"),
              std::string::npos)
        << r.output;
    r = d.run({"dev", "clean-all", "--yes"});
    ASSERT_EQ(r.status, 0) << r.errors;
    EXPECT_NE(r.output.find("Cleaned · about 4.79 GB\n"), std::string::npos) << r.output;
    r = d.run({"dev", "clean-all", "--yes"});
    EXPECT_EQ(r.output, "Nothing safe to clean in one go\n");
}

}  // namespace
