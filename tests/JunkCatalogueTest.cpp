// The junk rules: the classification of Library/Caches folders over every listed prefix, the
// texts people see, the default ticks, and every cloud glob on a real tree.

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/cleaning/JunkCatalogue.hpp"
#include "support/TestSupport.hpp"

namespace {

using brimstell::CacheKind;
using brimstell::DevKind;
using brimstell::JunkCatalogue;
using brimstell::JunkCategory;

template <typename Range>
std::vector<std::string> strings(const Range& range) {
    return std::vector<std::string>(range.begin(), range.end());
}

std::string upper(std::string text) {
    for (auto& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

// The prefixes each class must hold.
const std::vector<std::string> kBrowser = {
    "microsoft edge", "google", "firefox", "org.mozilla", "com.apple.safari", "bravesoftware", "arc",
    "company.thebrowser", "com.operasoftware", "vivaldi", "com.vivaldi", "com.microsoft.edgemac", "chromium",
    "com.google.chrome"};
const std::vector<std::string> kUpdater = {"updater", "shipit", "autoupdate"};
const std::vector<std::string> kCreative = {
    "com.adobe", "adobe", "csxs", "blender", "effectcraft", "com.sony.imaging", "autodesk", "com.autodesk",
    "maxon", "net.maxon", "com.blackmagic", "figma", "com.figma", "cavalry", "com.sidefx", "com.apple.finalcut",
    "com.apple.logic", "com.native-instruments", "ableton", "com.ableton", "com.battleaxe", "com.maxon",
    "capture one", "com.phaseone"};
const std::vector<std::string> kMedia = {
    "com.spotify", "spotify", "discord", "com.hnc.discord", "slack", "com.tinyspeck", "com.microsoft.teams",
    "us.zoom", "whatsapp", "net.whatsapp", "telegram", "ru.keepcoder", "com.apple.music", "com.apple.itunes",
    "com.apple.tv", "com.apple.podcasts", "signal", "org.whispersystems"};
const std::vector<std::string> kDeveloper = {
    "pip", "homebrew", "pnpm", "node-gyp", "typescript", "dotslash", "yarn", "com.apple.dt.", "jetbrains",
    "claude-cli", "go-build", "cocoapods", "org.cocoapods", "ms-playwright", "puppeteer", "electron", "deno",
    "bun", "cargo", "npm", "com.microsoft.vscode", "org.swift", "carthage"};
const std::vector<std::string> kSystem = {"com.apple.", "geoservices", "cloudkit", "passkit", "familycircled"};

std::string categoryOf(CacheKind kind) {
    switch (kind) {
        case CacheKind::browser: return "Browser Caches";
        case CacheKind::updater: return "App Updates";
        case CacheKind::creative: return "Creative Apps";
        case CacheKind::media: return "Music & Chat";
        case CacheKind::developer: return "Other Developer Caches";
        case CacheKind::system: return "macOS Caches";
        case CacheKind::other: return "Other App Caches";
    }
    return "";
}

// Every prefix of every class, bare, with a tail and in capitals, plus each updater substring at
// the start, middle and end of a name; then the names where the order of the classes decides.
TEST(JunkCatalogue, Classification) {
    struct Row {
        std::string name;
        CacheKind kind;
    };
    std::vector<Row> rows;
    const struct {
        const std::vector<std::string>* list;
        CacheKind kind;
        std::size_t held;  // by the catalogue's own list
    } lists[] = {
        {&kBrowser, CacheKind::browser, JunkCatalogue::browserPrefixes().size()},
        {&kCreative, CacheKind::creative, JunkCatalogue::creativePrefixes().size()},
        {&kMedia, CacheKind::media, JunkCatalogue::mediaPrefixes().size()},
        {&kDeveloper, CacheKind::developer, JunkCatalogue::developerPrefixes().size()},
        {&kSystem, CacheKind::system, JunkCatalogue::systemPrefixes().size()},
        {&kUpdater, CacheKind::updater, JunkCatalogue::updaterSubstrings().size()},
    };
    for (const auto& [list, kind, held] : lists) {
        EXPECT_EQ(held, list->size()) << categoryOf(kind);
        for (const auto& part : *list) {
            rows.push_back({part, kind});
            rows.push_back({upper(part) + ".X", kind});
            if (kind != CacheKind::updater) {
                rows.push_back({part + "Sample.Cache", kind});
                continue;
            }
            rows.push_back({"com.example." + upper(part.substr(0, 1)) + part.substr(1) + ".v2", kind});
            rows.push_back({"com.example.Mac" + part, kind});
            rows.push_back({"com.apple." + part, kind});  // before system
            rows.push_back({"com.adobe." + part, kind});  // before creative
        }
    }
    const Row decided[] = {
        {"com.apple.Safari", CacheKind::browser},        {"com.apple.SafariTechnologyPreview", CacheKind::browser},
        {"Google", CacheKind::browser},                  {"com.google.Chrome.canary", CacheKind::browser},
        {"Arc", CacheKind::browser},                     {"Microsoft Edge", CacheKind::browser},
        {"SomeUpdater", CacheKind::updater},             {"com.microsoft.autoupdate2", CacheKind::updater},
        {"com.adobe.AAMUpdater", CacheKind::updater},    {"com.github.GitHubClient.ShipIt", CacheKind::updater},
        {"com.google.SoftwareUpdate", CacheKind::other}, {"com.apple.FinalCut", CacheKind::creative},
        {"com.apple.logic10", CacheKind::creative},      {"Capture One", CacheKind::creative},
        {"com.apple.music", CacheKind::media},           {"com.apple.Music.Helper", CacheKind::media},
        {"com.apple.tv", CacheKind::media},              {"com.spotify.client", CacheKind::media},
        {"com.apple.dt.Xcode", CacheKind::developer},    {"org.swift.swiftpm", CacheKind::developer},
        {"Homebrew", CacheKind::developer},              {"com.apple.geod", CacheKind::system},
        {"com.apple.dt", CacheKind::system},             {"com.apple", CacheKind::other},
        {"apple", CacheKind::other},                     {"goog", CacheKind::other},
        {"pi", CacheKind::other},                        {"", CacheKind::other},
        {"org.carthage.CarthageKit", CacheKind::other},  {"\ncom.apple.Safari", CacheKind::other},
        {" google", CacheKind::other},                   {"com.apple.Safari\n", CacheKind::browser},
        {"\xff\xfe\x80", CacheKind::other},              {"\xc3\x9c" "ber", CacheKind::other},
        {std::string("com.apple.\0x", 12), CacheKind::system},
    };
    rows.insert(rows.end(), std::begin(decided), std::end(decided));

    for (const auto& row : rows) {
        EXPECT_EQ(JunkCatalogue::classify(row.name), row.kind) << "\"" << row.name << "\"";
        const bool xcode = row.kind == CacheKind::developer && upper(row.name).starts_with("COM.APPLE.DT.");
        EXPECT_EQ(JunkCatalogue::isXcodeCache(row.name), xcode) << row.name;
        EXPECT_EQ(JunkCatalogue::cacheCategory(row.name), xcode ? "Xcode" : categoryOf(row.kind)) << row.name;
    }
}

TEST(JunkCatalogue, Labels) {
    EXPECT_EQ(JunkCatalogue::packageLabels().size(), 13u);
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"org.swift.swiftpm", "Swift Package Manager"}, {"CocoaPods", "CocoaPods"},
        {"org.cocoapods", "CocoaPods"},                 {"Yarn", "Yarn"},
        {"Homebrew", "Homebrew downloads"},             {"NPM", "npm"},
        {"node-gyp", "node-gyp headers"},               {"go-build", "Go build cache"},
        {"org.carthage", "Carthage"},                   {"carthage", "Carthage"},
        {"cargo", "Cargo"},                             {"pnpm", "pnpm"},
        {"pip", "pip"},                                 {"homebrew-old", std::nullopt},
        {"org.swift", std::nullopt},                    {"org.swift.swiftpm ", std::nullopt},
        {"pip\n", std::nullopt},                        {"", std::nullopt},
    };
    for (const auto& [folder, label] : cases) EXPECT_EQ(JunkCatalogue::packageLabel(folder), label) << folder;

    const std::pair<std::string, std::string> shown[] = {
        {"Google", "Google (Chrome and other Google apps)"},
        {"google", "Google (Chrome and other Google apps)"},
        {"Google Earth", "Google Earth"},
        {"com.google.Chrome", "com.google.Chrome"},
        {"org.swift.swiftpm", "Swift Package Manager"},
        {"Homebrew", "Homebrew downloads"},
        {"com.spotify.client", "com.spotify.client"},
        {"a\nb\tc", "a\nb\tc"},
    };
    for (const auto& [folder, label] : shown) EXPECT_EQ(JunkCatalogue::cacheLabel(folder), label) << folder;
}

TEST(JunkCatalogue, Categories) {
    const struct {
        std::string name, icon, note;
        bool ticked;
        CacheKind group;
    } expected[] = {
        {"Browser Caches", "globe", "Logins, history and bookmarks are kept", true, CacheKind::browser},
        {"Website Offline Data", "wifi.slash", "Service worker storage · quit browsers first", false, CacheKind::browser},
        {"App Updates", "arrow.triangle.2.circlepath", "Installed update files", true, CacheKind::updater},
        {"Creative Apps", "paintbrush", "Media and render caches", false, CacheKind::creative},
        {"Music & Chat", "music.note", "Streaming and media caches", true, CacheKind::media},
        {"macOS Caches", "apple.logo", "System service caches", true, CacheKind::system},
        {"Other App Caches", "archivebox", "App caches", true, CacheKind::other},
        {"iOS Backups", "iphone", "iPhone and iPad backups on this Mac", false, CacheKind::other},
        {"iOS Updates", "arrow.down.app", "Downloaded iPhone and iPad software", true, CacheKind::other},
        {"Mail Attachments", "paperclip", "Attachments opened from Mail", true, CacheKind::other},
        {"Logs", "doc.text", "Logs and crash reports", true, CacheKind::other},
        {"Cloud Storage", "icloud", "Caches and logs · synced files untouched", true, CacheKind::other},
        {"Installers", "arrow.down.circle", "Disk images and archives in Downloads", true, CacheKind::other},
        {"Trash", "trash", "Already in the Trash", false, CacheKind::other},
        {"Xcode", "hammer", "Build files and simulator caches · rebuilt when needed", true, CacheKind::developer},
        {"Package Caches", "shippingbox", "Downloaded packages · fetched again when needed", true, CacheKind::developer},
        {"Other Developer Caches", "wrench.and.screwdriver", "Editors, test browsers, runtimes", true,
         CacheKind::developer},
        {"Old node_modules", "folder.badge.minus", "In projects untouched for 90+ days · npm install brings them back",
         true, CacheKind::developer},
    };
    ASSERT_EQ(JunkCatalogue::categories().size(), 14u);
    ASSERT_EQ(JunkCatalogue::developerCategories().size(), 4u);
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const auto& rule = i < 14 ? JunkCatalogue::categories()[i] : JunkCatalogue::developerCategories()[i - 14];
        const auto& want = expected[i];
        EXPECT_EQ(rule.name, want.name);
        EXPECT_EQ(rule.group, want.group) << want.name;
        ASSERT_EQ(JunkCatalogue::findCategory(want.name), &rule);
        const JunkCategory made = JunkCatalogue::makeCategory(rule);
        EXPECT_EQ(made.name, want.name);
        EXPECT_EQ(made.icon, want.icon) << want.name;
        EXPECT_EQ(made.note, want.note) << want.name;
        EXPECT_EQ(made.enabled, want.ticked) << want.name;
        EXPECT_TRUE(made.items.empty());
        EXPECT_FALSE(made.admin);
    }
    EXPECT_EQ(JunkCatalogue::findCategory("System Caches"), nullptr);
    EXPECT_EQ(JunkCatalogue::findCategory("browser caches"), nullptr);
    EXPECT_EQ(JunkCatalogue::developerCategory(DevKind::xcode), "Xcode");
    EXPECT_EQ(JunkCatalogue::developerCategory(DevKind::packages), "Package Caches");
    EXPECT_EQ(JunkCatalogue::developerCategory(DevKind::other), "Other Developer Caches");
}

// Everything is ticked after a scan but exactly four names; the helper's categories, unknown ones
// and near misses of the four are ticked too, whatever they held before.
TEST(JunkCatalogue, DefaultTicking) {
    std::vector<JunkCategory> cats;
    for (const auto& rule : JunkCatalogue::categories()) cats.push_back(JunkCatalogue::makeCategory(rule));
    for (const auto& rule : JunkCatalogue::developerCategories()) cats.push_back(JunkCatalogue::makeCategory(rule));
    for (const char* name : {"System Caches", "Other Users", "trash", "Trash ", "iOS Backups\n", ""}) {
        JunkCategory& extra = cats.emplace_back();
        extra.name = name;
        extra.admin = extra.name == "System Caches";
    }
    for (std::size_t i = 0; i < cats.size(); ++i) cats[i].enabled = i % 2 == 0;  // scrambled ticks

    JunkCatalogue::defaultTicking(cats);
    for (const auto& cat : cats) {
        const bool unticked = cat.name == "Website Offline Data" || cat.name == "Creative Apps" ||
                              cat.name == "iOS Backups" || cat.name == "Trash";
        EXPECT_EQ(cat.enabled, !unticked) << cat.name;
    }
}

TEST(JunkCatalogue, Total) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::pair<std::vector<std::int64_t>, std::int64_t> cases[] = {
        {{}, 0},
        {{1, 2, 3}, 6},
        {{0, 4096}, 4096},
        {{-5, 10}, 10},
        {{most, 1}, most},
        {{most - 1, 1}, most},
        {{most / 2 + 1, most / 2 + 1, -1}, most},
        {{std::numeric_limits<std::int64_t>::min(), 7}, 7},
    };
    for (const auto& [sizes, total] : cases) {
        JunkCategory cat;
        for (auto size : sizes) cat.items.push_back({"/x", "id", size, true, "x"});
        EXPECT_EQ(cat.total(), total);
    }
}

// The tables whose names people see or whose folders get removed, in full; then profile names and installers.
TEST(JunkCatalogue, TablesAndNames) {
    const std::pair<std::string, std::string> browsers[] = {
        {"Chrome", "Google/Chrome"}, {"Edge", "Microsoft Edge"}, {"Brave", "BraveSoftware/Brave-Browser"},
        {"Arc", "Arc/User Data"},    {"Vivaldi", "Vivaldi"},      {"Opera", "com.operasoftware.Opera"},
        {"Chromium", "Chromium"},
    };
    ASSERT_EQ(JunkCatalogue::chromiumBrowsers().size(), std::size(browsers));
    for (std::size_t i = 0; i < std::size(browsers); ++i) {
        EXPECT_EQ(JunkCatalogue::chromiumBrowsers()[i].name, browsers[i].first);
        EXPECT_EQ(JunkCatalogue::chromiumBrowsers()[i].folder, browsers[i].second);
    }
    EXPECT_EQ(strings(JunkCatalogue::profileCacheFolders()),
              (std::vector<std::string>{"Code Cache", "GPUCache", "DawnWebGPUCache", "DawnGraphiteCache", "GrShaderCache"}));
    EXPECT_EQ(strings(JunkCatalogue::topLevelCacheFolders()),
              (std::vector<std::string>{"GrShaderCache", "ShaderCache", "GraphiteDawnCache", "component_crx_cache"}));
    ASSERT_EQ(JunkCatalogue::offlineDataFolders().size(), 2u);
    EXPECT_EQ(JunkCatalogue::offlineDataFolders()[0].path, "Service Worker/CacheStorage");
    EXPECT_EQ(JunkCatalogue::offlineDataFolders()[0].labelSuffix, " · Offline site data");
    EXPECT_EQ(JunkCatalogue::offlineDataFolders()[1].path, "Service Worker/ScriptCache");
    EXPECT_EQ(JunkCatalogue::offlineDataFolders()[1].labelSuffix, " · Offline site scripts");
    EXPECT_EQ(JunkCatalogue::untouchedSince, " · untouched since ");

    const struct {
        std::string path, label;
        DevKind kind;
        bool ticked;
    } places[] = {
        {"Library/Developer/Xcode/DerivedData", "Xcode · DerivedData (build files)", DevKind::xcode, true},
        {"Library/Developer/CoreSimulator/Caches", "Simulator caches", DevKind::xcode, true},
        {"Library/Developer/Xcode/Archives", "Xcode Archives", DevKind::xcode, false},
        {".npm/_cacache", "npm", DevKind::packages, true},
        {".gradle/caches", "Gradle", DevKind::packages, true},
        {".cargo/registry/cache", "Cargo downloaded crates", DevKind::packages, true},
        {".cache/pip", "pip", DevKind::packages, true},
        {"Library/pnpm/store", "pnpm store (shared by projects)", DevKind::packages, false},
        {".cache/huggingface", "Hugging Face models", DevKind::other, false},
    };
    ASSERT_EQ(JunkCatalogue::developerPlaces().size(), std::size(places));
    for (std::size_t i = 0; i < std::size(places); ++i) {
        const auto& got = JunkCatalogue::developerPlaces()[i];
        EXPECT_EQ(got.path, places[i].path);
        EXPECT_EQ(got.label, places[i].label);
        EXPECT_EQ(got.kind, places[i].kind) << places[i].path;
        EXPECT_EQ(got.tickedByDefault, places[i].ticked) << places[i].path;
    }

    const std::pair<std::string, std::string> platforms[] = {
        {"iOS DeviceSupport", "iOS device support · 17.4 (21E219)"},
        {"watchOS DeviceSupport", "watchOS device support · 17.4 (21E219)"},
        {"tvOS DeviceSupport", "tvOS device support · 17.4 (21E219)"},
        {"visionOS DeviceSupport", "visionOS device support · 17.4 (21E219)"},
        {"macOS DeviceSupport", "macOS device support · 17.4 (21E219)"},
    };
    ASSERT_EQ(JunkCatalogue::deviceSupportPlatforms().size(), std::size(platforms));
    for (std::size_t i = 0; i < std::size(platforms); ++i) {
        const auto& got = JunkCatalogue::deviceSupportPlatforms()[i];
        EXPECT_EQ(got.folder, platforms[i].first);
        EXPECT_EQ(JunkCatalogue::deviceSupportLabel(got, "17.4 (21E219)"), platforms[i].second);
    }

    // Labels and globs are checked on a tree below; only the two OneDrive container rules are flagged.
    const auto cloud = JunkCatalogue::cloudRules();
    ASSERT_EQ(cloud.size(), 13u);
    for (std::size_t i = 0; i < cloud.size(); ++i) EXPECT_EQ(cloud[i].flag, i == 6 || i == 7) << cloud[i].label;

    const std::pair<std::string, bool> profiles[] = {
        {"Default", true},        {"Guest Profile", true}, {"Profile 1", true},      {"Profile 12", true},
        {"Profile x y", true},    {"Profile", false},      {"Profile1", false},      {"profile 1", false},
        {"default", false},       {"Default ", false},     {"Default\n", false},     {"Guest Profile 2", false},
        {"System Profile", false}, {" Profile 1", false},  {"", false},
    };
    for (const auto& [name, isProfile] : profiles) EXPECT_EQ(JunkCatalogue::isProfileName(name), isProfile) << name;

    const std::pair<std::string, bool> installers[] = {
        {"Foo.dmg", true},      {"Foo.DMG", true},       {"setup.pkg", true},     {"b.Zip", true},
        {"Xcode_15.xip", true}, {"a.tar.zip", true},     {"new\nline.zip", true}, {"x\xff.dmg", true},
        {"foo.dmg.part", false}, {"foo.tar.gz", false},  {"dmg", false},          {".dmg", false},
        {"foo.", false},        {"", false},             {"foo.dmgx", false},     {"foo.zi", false},
        {"foo.dmg ", false},    {"foo.crdownload", false},
    };
    for (const auto& [name, installer] : installers) EXPECT_EQ(JunkCatalogue::isInstaller(name), installer) << name;
}

// --- Cloud rules ---------------------------------------------------------------------------------

namespace fs = std::filesystem;

void makeDirs(const std::string& path) { fs::create_directories(path); }

void touch(const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << "x";
}

void makeLink(const std::string& target, const std::string& at) {
    fs::create_directories(fs::path(at).parent_path());
    ASSERT_EQ(::symlink(target.c_str(), at.c_str()), 0) << at;
}

// Every rule over one home: what each finds, in order, with links neither followed nor listed.
TEST(JunkCatalogue, CloudGlobsOnATree) {
    testing_support::TempDir dir;
    const std::string home = dir / "home";
    const std::string drive = home + "/Library/Application Support/Google/DriveFS";
    const std::string containers = home + "/Library/Containers";
    const std::string storage = home + "/Library/CloudStorage";

    makeDirs(drive + "/Logs");
    makeDirs(drive + "/Crashpad");
    makeDirs(drive + "/cef_cache/Cache");
    makeDirs(drive + "/cef_cache/Code Cache");
    makeDirs(home + "/Library/Group Containers/UBF8T346G9.OneDriveStandaloneSuite/FileProviderLogs");
    makeDirs(drive + "/1234567/thumbnails_cache");
    makeDirs(drive + "/acc ount/thumbnails_cache");
    makeDirs(drive + "/.hidden/thumbnails_cache");
    makeDirs(drive + "/no thumbnails");
    touch(drive + "/a file");
    makeLink(drive + "/1234567", drive + "/linked");
    makeDirs(containers + "/com.microsoft.OneDrive-mac/Data/Library/Caches");
    makeDirs(containers + "/com.microsoft.OneDrive-mac/Data/Library/Logs");
    makeDirs(containers + "/com.microsoft.OneDrive.FileProvider/Data/Library/Caches");
    makeDirs(containers + "/com.microsoft.OneDriveLauncher/Data/Library");
    makeDirs(containers + "/com.microsoft.Word/Data/Library/Caches");
    makeDirs(dir / "elsewhere/Data/Library/Caches");
    makeLink(dir / "elsewhere", containers + "/com.microsoft.OneDriveLink");
    makeDirs(home + "/Dropbox/.dropbox.cache");
    makeDirs(home + "/Dropbox (Personal)/.dropbox.cache/sub");
    touch(home + "/Dropbox\nline/.dropbox.cache");
    makeDirs(home + "/DropboxNoCache");
    touch(home + "/Dropbox.txt");
    makeLink(home + "/Dropbox", home + "/DropboxLink");
    makeDirs(home + "/dropbox lower/.dropbox.cache");
    makeDirs(storage + "/Dropbox-Team/.dropbox.cache");
    makeDirs(storage + "/Dropbox-Linked");
    makeLink(home + "/Dropbox/.dropbox.cache", storage + "/Dropbox-Linked/.dropbox.cache");
    makeDirs(home + "/Library/Application Support/Mega Limited/MEGAsync/logs");
    makeDirs(home + "/MEGA/.debris");
    makeDirs(home + "/Library/Application Support/Box/Box/logs");

    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Google Drive · Logs", drive + "/Logs"},
        {"Google Drive · Crash reports", drive + "/Crashpad"},
        {"Google Drive · Web cache", drive + "/cef_cache/Cache"},
        {"Google Drive · Web code cache", drive + "/cef_cache/Code Cache"},
        {"Google Drive · Thumbnails", drive + "/.hidden/thumbnails_cache"},
        {"Google Drive · Thumbnails", drive + "/1234567/thumbnails_cache"},
        {"Google Drive · Thumbnails", drive + "/acc ount/thumbnails_cache"},
        {"OneDrive · Sync logs", home + "/Library/Group Containers/UBF8T346G9.OneDriveStandaloneSuite/FileProviderLogs"},
        {"OneDrive · Cache", containers + "/com.microsoft.OneDrive-mac/Data/Library/Caches"},
        {"OneDrive · Cache", containers + "/com.microsoft.OneDrive.FileProvider/Data/Library/Caches"},
        {"OneDrive · Logs", containers + "/com.microsoft.OneDrive-mac/Data/Library/Logs"},
        {"Dropbox · Cache", home + "/Dropbox/.dropbox.cache"},
        {"Dropbox · Cache", home + "/Dropbox\nline/.dropbox.cache"},
        {"Dropbox · Cache", home + "/Dropbox (Personal)/.dropbox.cache"},
        {"Dropbox · Cache", storage + "/Dropbox-Team/.dropbox.cache"},
        {"MEGA · Logs", home + "/Library/Application Support/Mega Limited/MEGAsync/logs"},
        {"MEGA · Local rubbish bin", home + "/MEGA/.debris"},
        {"Box · Logs", home + "/Library/Application Support/Box/Box/logs"},
    };
    std::vector<std::pair<std::string, std::string>> found;
    for (const auto& rule : JunkCatalogue::cloudRules()) {
        for (auto& path : JunkCatalogue::expandCloudGlob(home, rule.glob)) found.emplace_back(rule.label, path);
    }
    EXPECT_EQ(found, expected);

    // The same home named with a trailing slash gives the same paths.
    EXPECT_EQ(JunkCatalogue::expandCloudGlob(home + "/", "Dropbox*/.dropbox.cache"),
              JunkCatalogue::expandCloudGlob(home, "Dropbox*/.dropbox.cache"));
}

TEST(JunkCatalogue, CloudGlobEdges) {
    testing_support::TempDir dir;
    const std::string home = dir / "home";
    makeDirs(home + "/.hidden");
    makeDirs(home + "/b folder/x");
    touch(home + "/a\tfile");
    touch(home + "/c\nname");
    makeLink("b folder", home + "/d link");
    // A home whose Library/CloudStorage is a link to the first one's.
    const std::string other = dir / "other";
    makeDirs(home + "/Library/CloudStorage/Dropbox/.dropbox.cache");
    makeLink(home + "/Library/CloudStorage", other + "/Library/CloudStorage");

    using Paths = std::vector<std::string>;
    const std::pair<std::string, Paths> cases[] = {
        {"*", {home + "/.hidden", home + "/Library", home + "/a\tfile", home + "/b folder", home + "/c\nname"}},
        {"b*/x", {home + "/b folder/x"}},
        {"b folder/*", {home + "/b folder/x"}},
        {"/b folder//x/", {home + "/b folder/x"}},
        {"./b folder/./x", {home + "/b folder/x"}},
        {"d link/x", {}},
        {"d link", {}},
        {"a\tfile/*", {}},
        {"b folder/../b folder/x", {}},
        {"..", {}},
        {"nothing*", {}},
        {"MEGA*/.debris", {}},
        {"Library/Application Support/Box/Box/logs", {}},
        {"", {}},
        {"/", {}},
    };
    for (const auto& [glob, paths] : cases) EXPECT_EQ(JunkCatalogue::expandCloudGlob(home, glob), paths) << glob;

    EXPECT_EQ(JunkCatalogue::expandCloudGlob(other, "Library/CloudStorage/Dropbox*/.dropbox.cache"), Paths{});
    EXPECT_EQ(JunkCatalogue::expandCloudGlob(home, "Library/CloudStorage/Dropbox*/.dropbox.cache"),
              Paths{home + "/Library/CloudStorage/Dropbox/.dropbox.cache"});
    EXPECT_EQ(JunkCatalogue::expandCloudGlob(dir / "missing", "*"), Paths{});
    EXPECT_EQ(JunkCatalogue::expandCloudGlob("", "*"), Paths{});
    EXPECT_EQ(JunkCatalogue::expandCloudGlob(home + "/a\tfile", "*"), Paths{});
}

// A "*" over a large folder matches every entry even when few descriptors are left.
TEST(JunkCatalogue, CloudGlobWithFewDescriptors) {
    testing_support::TempDir dir;
    const std::string home = dir / "home";
    std::vector<std::string> expected;
    for (int i = 0; i < 300; ++i) {
        const std::string folder = home + "/DriveFS/" + std::to_string(1000 + i);
        makeDirs(folder + "/thumbnails_cache");
        expected.push_back(folder + "/thumbnails_cache");
    }
    int open = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++open;
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit few = saved;
    few.rlim_cur = static_cast<rlim_t>(open + 16);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto found = JunkCatalogue::expandCloudGlob(home, "DriveFS/*/thumbnails_cache");
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(found, expected);
}

}  // namespace
