// `brimstell slow` against a sandbox Mac: the causes its fake tools give, the JSON, and quitting.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/sandbox/SandboxSlowdown.hpp"
#include "support/TestSupport.hpp"

namespace {

using testing_support::runProgram;

struct SlowCli {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = [this] {
        auto m = brimstell::SandboxMac::create(dir / "mac");
        m.addSampleApps();
        brimstell::addSlowdown(m);
        return m;
    }();
    testing_support::RunResult run(const std::vector<std::string>& args) const {
        auto env = mac.environment();
        env["BRIMSTELL_NOW"] = "1790000000";
        return runProgram(BRIMSTELL_CLI_EXE, args, env);
    }
};

TEST(SlowCli, CausesOfTheDemoMac) {
    SlowCli s;
    const auto r = s.run({"slow"});
    ASSERT_EQ(r.status, 0) << r.errors;
    for (const char* text : {
             "Your Mac is short of memory  (high)\n  macOS is using 4.83 GB of disk as extra memory, which is much slower "
             "than real memory. Quitting apps you aren't using frees it.\n",
             "Spotify is keeping the processor busy  (medium)\n  It's using 96% of a processor core. Quit it if you're not "
             "using it; if it keeps happening, an update may fix it.\n  → brimstell slow quit 702   (It's asked to quit "
             "as from the Dock, so it can offer to save your work.)\n",
             "com.example.backupd is keeping the processor busy  (medium)\n",
             "Google Chrome is using 2.66 GB of memory  (medium)\n",
             "Another account is still signed in  (medium)\n",
             "Spotlight is indexing your files  (low)\n",
             "Low Power Mode is on  (low)\n  It saves energy by running the processor slower.\n  → Open Settings… "
             "x-apple.systempreferences:com.apple.Battery-Settings.extension\n",
             "Your Mac hasn't restarted in 16 days  (low)\n"}) {
        EXPECT_NE(r.output.find(text), std::string::npos) << text << "\n" << r.output;
    }
    EXPECT_EQ(r.output.find("cupsd"), std::string::npos);
    EXPECT_EQ(r.output.find("hot"), std::string::npos);
}

TEST(SlowCli, JsonAndQuit) {
    SlowCli s;
    auto r = s.run({"slow", "--json"});
    ASSERT_EQ(r.status, 0) << r.errors;
    const auto j = nlohmann::json::parse(r.output);
    EXPECT_EQ(j["reading"]["memory"]["totalBytes"], 17179869184LL);
    EXPECT_EQ(j["reading"]["memory"]["swapBytes"], 4831838208LL);
    EXPECT_EQ(j["reading"]["thermal"], "fair");
    EXPECT_EQ(j["reading"]["lowPower"], true);
    const auto& spotify = j["causes"][1];
    EXPECT_EQ(spotify["severity"], "medium");
    EXPECT_EQ(spotify["fix"]["kind"], "quit");
    EXPECT_EQ(spotify["fix"]["bundleId"], "com.spotify.client");
    EXPECT_EQ(spotify["fix"]["pids"], nlohmann::json::array({702}));

    r = s.run({"slow", "quit", "810", "--yes"});
    EXPECT_EQ(r.status, 0) << r.errors;
    EXPECT_EQ(r.output, "It's asked to quit as from the Dock, so it can offer to save your work.\nGoogle Chrome was asked to quit\n");
    EXPECT_EQ(testing_support::readText(s.mac.path("/private/var/log/quit.log")), "810\n811\n812\n");
    r = s.run({"slow", "quit", "1243", "--yes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.errors, "brimstell: nothing found slowing the computer down asks to quit process 1243\n");
    r = s.run({"slow", "quit"});
    EXPECT_EQ(r.status, 2);
}

}  // namespace
