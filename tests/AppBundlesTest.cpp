// Installed apps: where they are looked for, how deep, what is read from each Info.plist.

#include <gtest/gtest.h>

#include <filesystem>

#include "kit/updates/AppBundles.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::AppBundle;
using brimstell::AppBundles;
using brimstell::SandboxApp;

std::vector<std::string> namesOf(const std::vector<AppBundle>& apps) {
    std::vector<std::string> names;
    for (const auto& a : apps) names.push_back(a.name);
    return names;
}

TEST(AppBundles, FoundAtTheTopAndOneFolderDownOnly) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    mac.addApp("/Applications/Alpha.app", {.bundleID = "com.example.alpha", .name = "Alpha"});
    mac.addApp("/Applications/Utilities/beta.app", {.bundleID = "com.example.beta", .name = "beta"});
    mac.addApp("~/Applications/Delta.app", {.bundleID = "com.example.delta", .name = "Delta"});
    mac.addApp("/Applications/Safari.app", {.bundleID = "com.apple.Safari", .name = "Safari"});
    // Never reached: three folders down, inside another app, inside another package, through a link.
    mac.addApp("/Applications/Tools/More/Gamma.app", {.bundleID = "com.example.gamma", .name = "Gamma"});
    mac.addApp("/Applications/Alpha.app/Contents/Helpers/Inner.app", {.bundleID = "com.example.inner", .name = "Inner"});
    mac.addApp("/Applications/Kit.framework/Nested.app", {.bundleID = "com.example.nested", .name = "Nested"});
    mac.addApp("/elsewhere/Linked.app", {.bundleID = "com.example.linked", .name = "Linked"});
    std::filesystem::create_directory_symlink(mac.path("/elsewhere"), mac.path("/Applications/Shortcuts"));
    // Dropped: nothing to read, no identifier, not a property list, a hidden name.
    mac.makeFolder("/Applications/Empty.app/Contents");
    mac.addApp("/Applications/NoID.app", {.name = "NoID"});
    mac.writeFile("/Applications/Garbage.app/Contents/Info.plist", "not a property list");
    mac.addApp("/Applications/.app", {.bundleID = "com.example.hidden", .name = "Hidden"});

    EXPECT_EQ(namesOf(AppBundles::all(false)), (std::vector<std::string>{"Alpha", "beta", "Delta"}));
    EXPECT_EQ(namesOf(AppBundles::all(true)), (std::vector<std::string>{"Alpha", "beta", "Delta", "Safari"}));
    const auto apps = AppBundles::all(false);
    EXPECT_EQ(apps[1].url, mac.path("/Applications/Utilities/beta.app"));
    EXPECT_EQ(apps[2].url, mac.home() + "/Applications/Delta.app");

    // Packages are entered when asked (the installed identifiers of the leftovers search).
    const auto entered = AppBundles::locations({mac.path("/Applications")}, true);
    EXPECT_NE(std::find(entered.begin(), entered.end(), mac.path("/Applications/Kit.framework/Nested.app")), entered.end());
    EXPECT_EQ(std::find(entered.begin(), entered.end(), mac.path("/Applications/Tools/More/Gamma.app")), entered.end());
}

TEST(AppBundles, ReadsWhatTheUpdateCheckNeeds) {
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    auto& mac = sh.mac;
    const auto store = mac.addApp("/Applications/Store.app", {.bundleID = "com.example.store", .name = "Store",
                                                              .version = "3.3.3", .build = "333", .fromAppStore = true,
                                                              .binary = true});
    const auto feed = mac.addApp("/Applications/Feed.app", {.bundleID = "com.example.feed", .version = "1.0",
                                                            .feed = "  https://updates.example.com/appcast.xml\n",
                                                            .edKey = "lpt9M3Ph+crEq="});
    mac.makeFolder("/Applications/Feed.app/Contents/_MASReceipt");  // a receipt folder without the receipt

    const auto s = AppBundles::read(store, false);
    ASSERT_TRUE(s);
    EXPECT_EQ(s->bundleID, "com.example.store");
    EXPECT_EQ(s->version, "3.3.3");
    EXPECT_EQ(s->build, "333");
    EXPECT_TRUE(s->fromAppStore);
    EXPECT_FALSE(s->feed || s->edKey);

    const auto f = AppBundles::read(feed, false);
    ASSERT_TRUE(f);
    EXPECT_EQ(f->name, "Feed") << "no name in the Info.plist: the folder's";
    EXPECT_EQ(f->build, "");
    EXPECT_EQ(f->feed, "https://updates.example.com/appcast.xml");
    EXPECT_EQ(f->edKey, "lpt9M3Ph+crEq=");
    EXPECT_FALSE(f->fromAppStore);

    // The display name comes first; a version that isn't text reads as none.
    mac.writeFile("/Applications/Named.app/Contents/Info.plist",
                  "<plist><dict><key>CFBundleIdentifier</key><string>com.example.named</string>"
                  "<key>CFBundleDisplayName</key><string>Shown</string><key>CFBundleName</key><string>Short</string>"
                  "<key>CFBundleShortVersionString</key><integer>2</integer></dict></plist>");
    const auto n = AppBundles::read(mac.path("/Applications/Named.app"), false);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "Shown");
    EXPECT_EQ(n->version, "");
    EXPECT_FALSE(AppBundles::read(mac.path("/Applications/Missing.app"), true));
    std::filesystem::remove_all(mac.path("/Applications"));
    EXPECT_TRUE(AppBundles::all(true).empty()) << "a place that can't be listed gives nothing";
}

TEST(AppBundles, FeedAddresses) {
    const struct {
        const char* text;
        const char* feed;  // nullptr: none
    } cases[] = {
        {"https://example.com/appcast.xml", "https://example.com/appcast.xml"},
        {" \t https://example.com/a.xml \n", "https://example.com/a.xml"},
        {"https://example.com", "https://example.com"},
        {"https://example.com:8443/feed?channel=beta#x", "https://example.com:8443/feed?channel=beta#x"},
        {"http://example.com/appcast.xml", nullptr},
        {"HTTPS://example.com/appcast.xml", nullptr},
        {"https://", nullptr},
        {"https:///appcast.xml", nullptr},
        {"https://example.com/a b.xml", nullptr},
        {"https://example.com/\xC3\xA9.xml", nullptr},
        {"https://example.com/{x}", nullptr},
        {"ftp://example.com/a.xml", nullptr},
        {"", nullptr},
        {"   ", nullptr},
    };
    for (const auto& c : cases) {
        const auto feed = AppBundles::httpsFeed(c.text);
        if (c.feed) {
            EXPECT_EQ(feed, c.feed) << c.text;
        } else {
            EXPECT_FALSE(feed) << c.text;
        }
    }
}

// Info.plist files of real apps, as their projects keep them and as one shipped.
TEST(AppBundles, RealInfoPlists) {
    const std::string folder = std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/app_info_plist";
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << folder;
    testing_support::SandboxHost sh;
    quorv::HostScope scope(sh.host);
    const struct {
        const char* file;
        const char* bundleID;
        const char* name;
        const char* version;
        const char* build;
        const char* feed;  // nullptr: none
        bool edKey;
    } cases[] = {
        {"keycastr_Info.plist", "$(PRODUCT_BUNDLE_IDENTIFIER)", "${PRODUCT_NAME}", "0.9.8", "1",
         "https://keycastr.github.io/appcast.xml", true},
        {"rectangle_Info.plist", "$(PRODUCT_BUNDLE_IDENTIFIER)", "$(PRODUCT_NAME)", "$(MARKETING_VERSION)",
         "$(CURRENT_PROJECT_VERSION)", "https://rectangleapp.com/downloads/updates.xml", true},
        {"sparkle_TestApplication_Info.plist", "$(PRODUCT_BUNDLE_IDENTIFIER)", "Sparkle Test App", "1.5.1", "1.5.1",
         nullptr, true},
        {"sparkle_Updater.app_built_Info.plist", "org.sparkle-project.Sparkle.Updater", "Updater", "2.6.4", "2039.1",
         nullptr, false},
    };
    for (const auto& c : cases) {
        const std::string app = sh.mac.makeFolder(std::string("/Applications/") + c.file + ".app/Contents");
        std::filesystem::copy_file(folder + "/" + c.file, app + "/Info.plist");
        const auto b = AppBundles::read(sh.mac.path(std::string("/Applications/") + c.file + ".app"), false);
        ASSERT_TRUE(b) << c.file;
        EXPECT_EQ(b->bundleID, c.bundleID) << c.file;
        EXPECT_EQ(b->name, c.name) << c.file;
        EXPECT_EQ(b->version, c.version) << c.file;
        EXPECT_EQ(b->build, c.build) << c.file;
        EXPECT_EQ(b->feed ? b->feed->c_str() : "(none)", std::string(c.feed ? c.feed : "(none)")) << c.file;
        EXPECT_EQ(b->edKey.has_value(), c.edKey) << c.file;
        EXPECT_FALSE(b->fromAppStore) << c.file;
    }
}

}  // namespace
