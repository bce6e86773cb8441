// The whole update check against a real HTTPS server on 127.0.0.1 whose authority only this
// sandbox trusts: feeds with and without updates, hostile and silent feeds, the App Store lookup
// and Homebrew, all in one check.

#include <gtest/gtest.h>

#include <algorithm>

#include "kit/sandbox/DemoFeeds.hpp"
#include "kit/sandbox/FeedServer.hpp"
#include "kit/sandbox/SandboxDeveloper.hpp"
#include "kit/updates/AppBundles.hpp"
#include "kit/updates/UpdateSession.hpp"
#include "kit/settings/SettingsKeys.hpp"
#include "kit/updates/UpdateChecker.hpp"
#include "kit/updates/UpdatesModel.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"

using namespace brimstell;

namespace {

std::string feedOf(const std::string& items) {
    return R"(<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>)" +
           items + "</channel></rss>";
}

std::string release(const std::string& version, const std::string& extra = "") {
    return "<item><sparkle:version>" + version + "</sparkle:version>" + extra +
           R"(<enclosure url="https://example.com/app.zip" length="5"/></item>)";
}

AppBundle feedApp(const std::string& name, const std::string& version, const std::string& build, const std::string& feed) {
    return {"/Applications/" + name + ".app", name, "com.example." + name, version, build, feed, std::nullopt, false};
}

AppBundle storeApp(const std::string& name, const std::string& version) {
    return {"/Applications/" + name + ".app", name, "com.example." + name, version, "1", std::nullopt, std::nullopt, true};
}

std::vector<std::string> names(const std::vector<AppBundle>& apps) {
    std::vector<std::string> out;
    for (const auto& a : apps) out.push_back(a.name);
    return out;
}

class UpdateCheckerTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = FeedServer::start(sb.dir.path());
        ASSERT_TRUE(server);
        sb.host->environment["BRIMSTELL_SANDBOX_CA_FILE"] = server->caFile();
        sb.host->environment["BRIMSTELL_SANDBOX_APPSTORE_HOST"] = "127.0.0.1:" + std::to_string(server->port());
        sb.host->environment["LANG"] = "en_GB.UTF-8";
        sb.mac.addSystemVersion("14.2.1");
        scope = std::make_unique<quorv::HostScope>(sb.host);
    }
    std::string feed(const std::string& path, FeedServer::Answer answer) {
        server->serve(path, std::move(answer));
        return server->base() + path;
    }
    std::string lookup(const std::string& id) { return "/lookup?bundleId=com.example." + id + "&entity=macSoftware&country=GB"; }

    testing_support::SandboxHost sb;
    std::unique_ptr<FeedServer> server;
    std::unique_ptr<quorv::HostScope> scope;
};

}  // namespace

TEST_F(UpdateCheckerTest, EveryKindOfAnswerInOneCheck) {
    const std::string laughs = R"(<?xml version="1.0"?><!DOCTYPE r [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;&a;&a;">]><r>&b;</r>)";
    const std::vector<AppBundle> apps = {
        feedApp("alpha", "1.0", "100", feed("/alpha.xml", {feedOf(release("200", "<sparkle:shortVersionString>2.0</sparkle:shortVersionString>"))})),
        feedApp("Beta", "1.0", "1", feed("/beta.xml", {feedOf(release("1") + release("2", "<sparkle:channel>beta</sparkle:channel>"))})),
        feedApp("Gamma", "1.0", "1", feed("/gamma.xml", {feedOf(release("2", "<sparkle:minimumSystemVersion>15</sparkle:minimumSystemVersion>") + release("1"))})),
        feedApp("Delta", "1.0", "1", feed("/delta.xml", {"gone", 404})),
        feedApp("Epsilon", "1.0", "1", feed("/epsilon.xml", {laughs})),
        feedApp("Zeta", "1.0", "1", feed("/zeta.xml", {feedOf(release("9")), 200, 0, true})),
        feedApp("Lambda", "1.5", "", feed("/lambda.xml", {feedOf(release("1.5"))})),  // no build: the version counts
        feedApp("Mu", "1.0", "1", feed("/mu.xml", {"<rss><channel><item>"})),
        storeApp("Eta", "2.0"),
        storeApp("Theta", "2.0"),
        {"/Applications/Iota.app", "Iota", "com.example.iota", "1", "1", std::nullopt, std::nullopt, false},
    };
    server->serve(lookup("Eta"), {R"({"resultCount":1,"results":[{"version":"3.0","trackId":42}]})"});
    server->serve(lookup("Theta"), {R"({"resultCount":0,"results":[]})"});
    addHomebrew(sb.mac);  // its only outdated cask is firefox 120.0 -> 121.0

    UpdateSession::Options options = UpdateSession::hostOptions();
    options.timeout = 4;  // Zeta never answers
    const auto r = UpdateChecker::check(apps, options);

    std::vector<std::string> got;
    for (const auto& u : r.updates) got.push_back(u.id() + " " + u.installed + " -> " + u.available);
    EXPECT_EQ(got, (std::vector<std::string>{"Sparkle|/Applications/alpha.app 1.0 -> 2.0",
                                             "App Store|/Applications/Eta.app 2.0 -> 3.0", "Homebrew|firefox 120.0 -> 121.0"}));
    EXPECT_EQ(r.updates[1].storeURL, "macappstore://apps.apple.com/app/id42");
    EXPECT_EQ(r.upToDate, 3);  // Beta, Gamma, Lambda
    EXPECT_EQ(names(r.failed), (std::vector<std::string>{"Delta", "Epsilon", "Zeta", "Mu", "Theta"}));
    EXPECT_EQ(names(r.cantCheck), (std::vector<std::string>{"Iota"}));
    EXPECT_EQ(testing_support::readText(sb.mac.path("/private/var/log/brew.env")),
              "1 1 1 PATH=/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin\n");
    EXPECT_EQ(testing_support::linesOf(sb.mac.path("/private/var/log/tools.log")),
              (std::vector<std::string>{"/opt/homebrew/bin/brew outdated --cask --json=v2"}));
    const auto agents = server->userAgents();
    EXPECT_EQ(agents.size(), 10u);
    EXPECT_TRUE(std::all_of(agents.begin(), agents.end(), [](const auto& a) { return a == "Brimstell/1.0 (update check)"; }));
}

TEST_F(UpdateCheckerTest, WhyEachReleaseWasPassedOver) {
    const auto app = feedApp("Beta", "1.0", "3", feed("/beta.xml", {feedOf(
        release("2") + release("5", "<sparkle:channel>beta</sparkle:channel>") +
        release("6", "<sparkle:minimumSystemVersion>15.0</sparkle:minimumSystemVersion>") + release("4") + release("3"))}));
    const auto r = UpdateChecker::check({app}, UpdateSession::hostOptions());
    ASSERT_EQ(r.apps.size(), 1u);
    EXPECT_EQ(r.apps[0].source, "Sparkle");
    EXPECT_EQ(r.apps[0].chosen, "4");
    EXPECT_EQ(r.apps[0].passedOver, (std::vector<std::string>{"2: not newer than the installed 3", "5: on the beta channel",
                                                              "6: needs system 15.0 or later", "3: not newer than the installed 3"}));
}

TEST_F(UpdateCheckerTest, AnUntrustedCertificateIsNeverAccepted) {
    const auto app = feedApp("Alpha", "1.0", "1", feed("/alpha.xml", {feedOf(release("2"))}));
    sb.host->environment.erase("BRIMSTELL_SANDBOX_CA_FILE");
    EXPECT_EQ(names(UpdateChecker::check({app}, UpdateSession::hostOptions()).failed), (std::vector<std::string>{"Alpha"}));
    // Outside a sandbox the variable is not heeded.
    sb.host->environment["BRIMSTELL_SANDBOX_CA_FILE"] = server->caFile();
    sb.host->sandbox = false;
    EXPECT_EQ(UpdateSession::hostOptions().caFile, std::nullopt);
    EXPECT_EQ(UpdateChecker::appStoreAddress(storeApp("a b", "1")),
              "https://itunes.apple.com/lookup?bundleId=com.example.a%20b&entity=macSoftware&country=GB");
}

TEST_F(UpdateCheckerTest, ModelKeepsTheOutcomeAndTheDateOfTheCheck) {
    UpdatesModel model;
    EXPECT_EQ(model.status(), "Click Check for Updates to see which apps have a newer version.");
    EXPECT_EQ(model.lastCheck, std::nullopt);
    model.check({feedApp("Alpha", "2.0", "2", feed("/alpha.xml", {feedOf(release("2"))}))});
    EXPECT_TRUE(model.done);
    EXPECT_EQ(model.upToDate, 1);
    EXPECT_EQ(model.status(), "Every app that can be checked is up to date");
    const auto written = quorv::settings().date(keys::updatesLastCheck);
    ASSERT_TRUE(written);
    EXPECT_EQ(written->since1970, sb.now);
    EXPECT_EQ(UpdatesModel().lastCheck, sb.now);
    EXPECT_EQ(UpdatesModel::notReachedText("Slack"), "Slack couldn't be reached right now");
}

TEST(UpdateRegion, FromTheLocaleOrUS) {
    const std::pair<std::map<std::string, std::string>, const char*> cases[] = {
        {{{"LANG", "de_AT.UTF-8"}}, "AT"},
        {{{"LANG", "de_AT.UTF-8"}, {"LC_ALL", "fr_CA@euro"}}, "CA"},
        {{{"LANG", "C.UTF-8"}}, "US"},
        {{{"LANG", "en"}}, "US"},
        {{{"LANG", "en_gb"}}, "US"},
        {{}, "US"},
    };
    for (const auto& [env, expected] : cases) {
        auto h = std::make_shared<quorv::Host>();
        h->environment = env;
        quorv::HostScope scope(h);
        EXPECT_EQ(UpdateChecker::region(), expected);
    }
}

// The demo Mac's sources, served by one server standing in for their hosts: every request goes to
// 127.0.0.1 while the addresses keep their own names, which the server's certificate holds.
TEST(DemoFeeds, TheDemoMacsAppsFindAnUpdateEachFromAFeedAndTheAppStore) {
    testing_support::SandboxHost sb;
    sb.mac.addSampleApps();
    sb.mac.addSystemVersion("14.2.1");
    sb.host->environment["LANG"] = "C";
    quorv::HostScope scope(sb.host);
    const auto server = FeedServer::start(sb.dir.path(), DemoFeeds::hostNames());
    ASSERT_TRUE(server);
    for (const auto& [path, body] : DemoFeeds::answers()) server->serve(path, {body});
    sb.host->environment["BRIMSTELL_SANDBOX_CA_FILE"] = server->caFile();

    sb.host->environment["BRIMSTELL_SANDBOX_FEEDS_AT"] = "127.0.0.1:" + std::to_string(server->port());
    const auto result = UpdateChecker::check(AppBundles::all(true));
    std::vector<std::string> updates;
    for (const auto& u : result.updates) {
        updates.push_back(std::string(u.source == AppUpdate::Source::sparkle ? "Sparkle " : "App Store ") + u.name + " " +
                          u.installed + " → " + u.available);
    }
    EXPECT_EQ(updates, (std::vector<std::string>{"Sparkle Example 2.4.1 → 2.5.0", "App Store Notebook 5.1 → 5.2"}));
    EXPECT_EQ(result.upToDate, 2);  // Spotify (its newer release is a beta) and Disk Inspector
    EXPECT_TRUE(result.failed.empty());
}

// Requests are sent elsewhere only in a sandbox, and only to loopback.
TEST(DemoFeeds, OnlyASandboxConnectsElsewhereAndOnlyToLoopback) {
    testing_support::SandboxHost sb;
    quorv::HostScope scope(sb.host);
    for (const auto& [at, sandbox, expected] : std::vector<std::tuple<std::string, bool, std::string>>{
             {"127.0.0.1:8443", true, "127.0.0.1:8443"},
             {"localhost:8443", true, "localhost:8443"},
             {"127.0.0.1:8443", false, ""},
             {"192.0.2.1:8443", true, ""},
             {"127.0.0.1.example.com:8443", true, ""},
         }) {
        SCOPED_TRACE(at);
        sb.host->sandbox = sandbox;
        sb.host->environment["BRIMSTELL_SANDBOX_FEEDS_AT"] = at;
        EXPECT_EQ(UpdateSession::hostOptions().connectTo.value_or(""), expected);
    }
}
