// The update feed reader: the real feeds as published, the rules of choosing a release, and feeds
// that are broken or hostile.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kit/updates/AppcastParser.hpp"
#include "support/TestSupport.hpp"

using brimstell::AppcastItem;
using brimstell::AppcastParser;

namespace {

std::string rss(const std::string& items) {
    return R"(<?xml version="1.0" encoding="utf-8"?><rss version="2.0" )"
           R"(xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><title>T</title>)" +
           items + "</channel></rss>";
}

std::string item(const std::string& inside) {
    return "<item>" + inside + R"(<enclosure url="https://example.com/a.zip" length="10"/></item>)";
}

std::string chosen(const std::string& feed, const std::string& os = "14.2.1") {
    const auto items = AppcastParser::parse(feed);
    if (!items) return "refused";
    const auto best = AppcastParser::newest(*items, os);
    return best ? best->version : "none";
}

}  // namespace

TEST(AppcastParser, RealFeedsGiveTheirReleasesAndTheOneToOffer) {
    const std::string folder = std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/sparkle_appcast/";
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << folder;
    struct Case {
        const char* file;
        std::size_t items;
        const char* newest;  // on macOS 14.2.1
    };
    const Case cases[] = {
        {"sparkle_SampleAppcast.xml", 3, "241"},
        {"sparkle_testappcast.xml", 4, "5.0"},            // 4.0 wants system 17.0.0
        {"sparkle_testappcast_channels.xml", 6, "7.0"},   // an empty channel counts as a channel
        {"sparkle_testapp_cdata_channels.xml", 3, "2.0"}, // 2.2 and 2.1 are on channels
        {"maccy_appcast.xml", 1, "62"},                   // attributes only
        {"vimr_appcast.xml", 1, "20260615.163555"},
        {"vimr_appcast_2015_dsa.xml", 1, "29"},
        {"hammerspoon_appcast.xml", 102, "6933"},
        {"iterm2_final_empty_channel.xml", 0, "none"},
        // Names are matched as written: another prefix for the same namespace isn't read.
        {"sparkle_custom_ns_prefix.xml", 0, "none"},
    };
    for (const auto& c : cases) {
        const auto items = AppcastParser::parse(testing_support::readText(folder + c.file));
        ASSERT_TRUE(items) << c.file;
        EXPECT_EQ(items->size(), c.items) << c.file;
        const auto best = AppcastParser::newest(*items, "14.2.1");
        EXPECT_EQ(best ? best->version : "none", c.newest) << c.file;
    }
}

TEST(AppcastParser, SampleFeedFieldsAreReadWhole) {
    const std::string file = std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/sparkle_appcast/sparkle_SampleAppcast.xml";
    if (!std::filesystem::exists(file)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << file;
    const auto items = AppcastParser::parse(testing_support::readText(file));
    ASSERT_TRUE(items && items->size() == 3);
    const AppcastItem& first = (*items)[0];
    EXPECT_EQ(first.url, "https://you.com/app/Your%20Great%20App%202.0.zip");
    EXPECT_EQ(first.length, 1623481);
    EXPECT_EQ(first.minimumSystem, "10.13");
    EXPECT_TRUE(first.edSignature && first.edSignature->starts_with("WVyVJpOx+a5+"));
    EXPECT_EQ((*items)[2].shortVersion, "1.4");
}

TEST(AppcastParser, ChoosingTheRelease) {
    struct Case {
        const char* what;
        std::string feed;
        const char* os;
        const char* expected;
    };
    const Case cases[] = {
        {"only the newer one is on a channel",
         rss(item("<sparkle:version>1.0</sparkle:version>") +
             item("<sparkle:version>2.0</sparkle:version><sparkle:channel>beta</sparkle:channel>")),
         "14.2", "1.0"},
        {"channel only", rss(item("<sparkle:version>2.0</sparkle:version><sparkle:channel>beta</sparkle:channel>")),
         "14.2", "none"},
        {"minimum system too new",
         rss(item("<sparkle:version>2.0</sparkle:version><sparkle:minimumSystemVersion>15.0</sparkle:minimumSystemVersion>") +
             item("<sparkle:version>1.9</sparkle:version>")),
         "14.2.1", "1.9"},
        {"minimum system equal to the running one",
         rss(item("<sparkle:version>2.0</sparkle:version><sparkle:minimumSystemVersion>14.2.1</sparkle:minimumSystemVersion>")),
         "14.2.1", "2.0"},
        {"greatest, not first", rss(item("<sparkle:version>2.9</sparkle:version>") + item("<sparkle:version>2.10</sparkle:version>")),
         "14", "2.10"},
        {"no enclosure url", rss("<item><sparkle:version>3</sparkle:version><enclosure length=\"1\"/></item>"), "14", "none"},
        {"enclosure url not an address", rss("<item><sparkle:version>3</sparkle:version><enclosure url=\"a zip\"/></item>"), "14", "none"},
        {"no version at all", rss(item("<title>x</title>")), "14", "none"},
        {"elements outside an item", rss("<sparkle:version>9</sparkle:version>" + item("<sparkle:version>1</sparkle:version>")),
         "14", "1"},
    };
    for (const auto& c : cases) EXPECT_EQ(chosen(c.feed, c.os), c.expected) << c.what;
}

TEST(AppcastParser, FirstSeenWinsAndTiesGoToTheEarliest) {
    // The element comes first, then an enclosure that says otherwise: the element holds.
    const auto items = AppcastParser::parse(rss(
        "<item><sparkle:version>5</sparkle:version><sparkle:shortVersionString>5.0</sparkle:shortVersionString>"
        R"(<enclosure url="https://example.com/first.zip" sparkle:version="6" sparkle:shortVersionString="6.0" length="x"/>)"
        R"(<sparkle:deltas><enclosure url="https://example.com/delta.patch" length="3"/></sparkle:deltas>)"
        "<sparkle:releaseNotesLink> https://example.com/notes </sparkle:releaseNotesLink></item>" +
        std::string(R"(<item><enclosure url="https://example.com/tie.zip" sparkle:version="5.0"/>)") +
        "<sparkle:version>7</sparkle:version><sparkle:releaseNotesLink>file:///etc/passwd</sparkle:releaseNotesLink></item>"));
    ASSERT_TRUE(items && items->size() == 2);
    const auto& a = (*items)[0];
    EXPECT_EQ(a.version, "5");
    EXPECT_EQ(a.shortVersion, "5.0");
    EXPECT_EQ(a.url, "https://example.com/first.zip");
    EXPECT_EQ(a.length, std::nullopt);  // "x" is no number
    EXPECT_EQ(a.notes, "https://example.com/notes");
    const auto& b = (*items)[1];
    EXPECT_EQ(b.version, "5.0");  // the attribute came before the element
    EXPECT_EQ(b.notes, std::nullopt);
    EXPECT_EQ(AppcastParser::newest(*items, "14")->url, "https://example.com/first.zip");
}

TEST(AppcastParser, BrokenAndHostileFeedsAreRefusedWhole) {
    const std::string laughs =
        R"(<?xml version="1.0"?><!DOCTYPE rss [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">)"
        R"(<!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;"><!ENTITY d "&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;">]>)"
        "<rss><channel><item><title>&d;&d;&d;&d;</title></item></channel></rss>";
    const std::string external =
        R"(<?xml version="1.0"?><!DOCTYPE rss [<!ENTITY x SYSTEM "file:///etc/passwd">]><rss><channel>)" +
        item("<sparkle:version>&x;</sparkle:version>") + "</channel></rss>";
    const std::string huge = rss(item("<description>" + std::string(AppcastParser::maxTextBytes + 1, 'x') +
                                      "</description><sparkle:version>2</sparkle:version>"));
    const std::string cases[] = {
        laughs,
        external,
        huge,
        rss(item("<sparkle:version>2</sparkle:version>")).substr(0, 150),  // cut short
        rss(item("<sparkle:version>2</sparkle:version>")) + "<trailing/>",
        "<rss><channel><item></channel></rss>",
        std::string("<rss>\xff\xfe</rss>"),
        "",
        "not xml at all",
    };
    for (const auto& feed : cases) EXPECT_EQ(AppcastParser::parse(feed), std::nullopt) << feed.substr(0, 80);
}

TEST(AppcastParser, ReadsAFeedInPiecesAsItArrives) {
    const std::string feed = rss(item("<sparkle:version>3.1</sparkle:version>") + item("<sparkle:version>3.2</sparkle:version>"));
    AppcastParser p;
    for (std::size_t i = 0; i < feed.size(); i += 7) {
        ASSERT_TRUE(p.feed(std::string_view(feed).substr(i, 7), false));
    }
    EXPECT_FALSE(p.finished());
    ASSERT_TRUE(p.feed({}, true));
    EXPECT_TRUE(p.finished());
    ASSERT_EQ(p.items.size(), 2u);
    EXPECT_EQ(p.items[1].version, "3.2");
}
