// The agent's weekly update check, end to end: the built agent against a sandbox Mac whose apps'
// feeds a loopback HTTPS server serves, trusted through the sandbox's own authority.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/sandbox/FeedServer.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/PlistFileStore.hpp"

using brimstell::FeedServer;

namespace {

std::string feedOf(const std::string& version) {
    return R"(<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)"
           "<item><sparkle:version>" + version +
           R"(</sparkle:version><enclosure url="https://example.com/a.zip" length="1"/></item></channel></rss>)";
}

struct UpdatesSandbox {
    testing_support::TempDir dir;
    brimstell::SandboxMac mac = brimstell::SandboxMac::create(dir / "mac");
    std::unique_ptr<FeedServer> server = FeedServer::start(dir.path());
    std::string outbox = dir / "outbox.jsonl";

    quorv::PlistFileStore settings() const { return quorv::PlistFileStore(mac.home() + "/Library/Preferences/com.quorv.brimstell.plist"); }

    void addApp(const std::string& name, const std::string& installed, const std::string& offered) {
        const std::string path = "/" + name + ".xml";
        server->serve(path, {feedOf(offered)});
        mac.addApp("/Applications/" + name + ".app",
                   {.bundleID = "com.example." + name, .name = name, .version = installed, .build = installed, .feed = server->base() + path});
    }

    testing_support::RunResult run(const std::string& now) const {
        auto env = mac.environment();
        env["BRIMSTELL_OUTBOX"] = outbox;
        env["BRIMSTELL_NOW"] = now;
        env["XPC_SERVICE_NAME"] = "com.quorv.brimstell.agent";
        env["BRIMSTELL_SANDBOX_CA_FILE"] = server->caFile();
        return testing_support::runProgram(BRIMSTELL_AGENT_EXE, {}, env);
    }

    std::vector<std::pair<std::string, std::string>> alerts() const {
        std::vector<std::pair<std::string, std::string>> out;
        for (const auto& line : testing_support::linesOf(outbox)) {
            const auto j = nlohmann::json::parse(line);
            out.emplace_back(j["title"], j["body"]);
        }
        return out;
    }
};

}  // namespace

TEST(AgentUpdatesEndToEnd, WeeklyCheckAlertsWithTheCountOnce) {
    struct Case {
        int newer;
        const char* title;
    };
    for (const Case c : {Case{1, "1 app update available"}, Case{3, "3 app updates available"}}) {
        UpdatesSandbox s;
        ASSERT_TRUE(s.server);
        s.mac.addSystemVersion("14.2.1");
        for (int i = 0; i < 4; ++i) s.addApp("App" + std::to_string(i), "1.0", i < c.newer ? "2.0" : "1.0");
        s.settings().set("checkUpdatesWeekly", true);
        s.settings().set("warnLoginItems", false);

        ASSERT_EQ(s.run("1790000000").status, 0);
        EXPECT_EQ(s.alerts(), (std::vector<std::pair<std::string, std::string>>{
                                  {c.title, "Open Brimstell → Applications → App Updates to see them."}}));
        const auto last = s.settings().date("updatesLastCheck");
        ASSERT_TRUE(last);
        EXPECT_EQ(last->since1970, 1790000000);

        // Six days on the check isn't due; a week on it is, and alerts again.
        ASSERT_EQ(s.run(std::to_string(1790000000 + 6 * 86400)).status, 0);
        EXPECT_EQ(s.alerts().size(), 1u);
        ASSERT_EQ(s.run(std::to_string(1790000000 + 7 * 86400)).status, 0);
        EXPECT_EQ(s.alerts().size(), 2u);
    }
}

TEST(AgentUpdatesEndToEnd, NothingIsAskedWhenTheUserDidNotChooseIt) {
    UpdatesSandbox s;
    ASSERT_TRUE(s.server);
    s.addApp("App", "1.0", "2.0");
    s.settings().set("warnLoginItems", false);
    ASSERT_EQ(s.run("1790000000").status, 0);
    EXPECT_TRUE(s.alerts().empty());
    EXPECT_TRUE(s.server->paths().empty());
    EXPECT_FALSE(s.settings().date("updatesLastCheck"));
}
