// The junk rules: the classification of Library/Caches folders over every listed prefix, the
// texts people see, the default ticks, and every cloud glob on a real tree.

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kit/cleaning/JunkCatalogue.hpp"
#include "support/TestFiles.hpp"
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

using Pair = std::pair<std::string, std::string>;
using Pairs = std::vector<Pair>;

// The rows of a catalogue table, each made comparable by f.
template <typename Row, typename F>
auto rowsOf(std::span<const Row> rows, F f) {
    std::vector<decltype(f(rows[0]))> out;
    for (const auto& row : rows) out.push_back(f(row));
    return out;
}

std::string upper(std::string text) {
    for (auto& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

std::string categoryOf(CacheKind kind) {
    static const std::map<CacheKind, std::string> names = {
        {CacheKind::browser, "Browser Caches"},       {CacheKind::updater, "App Updates"},
        {CacheKind::creative, "Creative Apps"},       {CacheKind::media, "Music & Chat"},
        {CacheKind::developer, "Other Developer Caches"}, {CacheKind::system, "macOS Caches"},
        {CacheKind::other, "Other App Caches"}};
    return names.at(kind);
}

// Real cache folder names, and every prefix of each list, bare and in capitals with a tail, land in
// their own class (so no earlier class shadows one); then the names where the order of the classes decides.
TEST(JunkCatalogue, Classification) {
    struct Row {
        std::string name;
        CacheKind kind;
    };
    std::vector<Row> rows = {
        {"com.google.Chrome", CacheKind::browser},    {"Firefox", CacheKind::browser},
        {"company.thebrowser.Browser", CacheKind::browser}, {"com.adobe.Photoshop", CacheKind::creative},
        {"com.blackmagic-design.DaVinciResolve", CacheKind::creative}, {"com.spotify.client", CacheKind::media},
        {"com.tinyspeck.slackmacgap", CacheKind::media}, {"Homebrew", CacheKind::developer},
        {"ms-playwright", CacheKind::developer},      {"com.microsoft.VSCode", CacheKind::developer},
        {"GeoServices", CacheKind::system},           {"com.apple.nsurlsessiond", CacheKind::system},
        {"com.github.Electron.ShipIt", CacheKind::updater}, {"com.microsoft.autoupdate2", CacheKind::updater},
        {"com.apple.Safari", CacheKind::browser},     {"com.google.SoftwareUpdate", CacheKind::other},
        {"com.apple.music", CacheKind::media},        {"com.apple.dt.Xcode", CacheKind::developer},
        {"com.apple.geod", CacheKind::system},        {"com.apple.dt", CacheKind::system},
        {"com.apple", CacheKind::other},              {"goog", CacheKind::other},
        {"", CacheKind::other},                       {"org.carthage.CarthageKit", CacheKind::other},
        {"\ncom.apple.Safari", CacheKind::other},     {"com.apple.Safari\n", CacheKind::browser},
        {"\xff\xfe\x80", CacheKind::other},           {std::string("com.apple.\0x", 12), CacheKind::system},
    };
    const std::pair<CacheKind, std::vector<std::string>> lists[] = {
        {CacheKind::browser, strings(JunkCatalogue::browserPrefixes())},
        {CacheKind::creative, strings(JunkCatalogue::creativePrefixes())},
        {CacheKind::media, strings(JunkCatalogue::mediaPrefixes())},
        {CacheKind::developer, strings(JunkCatalogue::developerPrefixes())},
        {CacheKind::system, strings(JunkCatalogue::systemPrefixes())},
        {CacheKind::updater, {"updater", "shipit", "autoupdate"}},
    };
    for (const auto& [kind, list] : lists) {
        for (const auto& part : list) {
            rows.push_back({part, kind});
            rows.push_back({upper(part) + ".X", kind});
            if (kind != CacheKind::updater) continue;
            rows.push_back({"com.example." + upper(part.substr(0, 1)) + part.substr(1) + ".v2", kind});
            rows.push_back({"com.example.Mac" + part, kind});
            rows.push_back({"com.apple." + part, kind});  // before system
            rows.push_back({"com.adobe." + part, kind});  // before creative
        }
    }
    for (const auto& row : rows) {
        EXPECT_EQ(JunkCatalogue::classify(row.name), row.kind) << "\"" << row.name << "\"";
        const bool xcode = row.kind == CacheKind::developer && upper(row.name).starts_with("COM.APPLE.DT.");
        EXPECT_EQ(JunkCatalogue::isXcodeCache(row.name), xcode) << row.name;
        EXPECT_EQ(JunkCatalogue::cacheCategory(row.name), xcode ? "Xcode" : categoryOf(row.kind)) << row.name;
    }
}

TEST(JunkCatalogue, Labels) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"CocoaPods", "CocoaPods"}, {"NPM", "npm"},          {"homebrew-old", std::nullopt},
        {"org.swift.swiftpm", "Swift Package Manager"},      {"go-build", "Go build cache"},
        {"node-gyp", "node-gyp headers"},                    {"org.carthage", "Carthage"},
        {"org.swift", std::nullopt}, {"pip\n", std::nullopt}, {"", std::nullopt},
    };
    for (const auto& [folder, label] : cases) EXPECT_EQ(JunkCatalogue::packageLabel(folder), label) << folder;

    const std::pair<std::string, std::string> shown[] = {
        {"Google", "Google (Chrome and other Google apps)"}, {"google", "Google (Chrome and other Google apps)"},
        {"Google Earth", "Google Earth"},                     {"com.google.Chrome", "com.google.Chrome"},
        {"Homebrew", "Homebrew downloads"},                   {"a\nb\tc", "a\nb\tc"},
    };
    for (const auto& [folder, label] : shown) EXPECT_EQ(JunkCatalogue::cacheLabel(folder), label) << folder;
}

TEST(JunkCatalogue, Categories) {
    using Row = std::tuple<std::string, std::string, std::string, bool, CacheKind>;  // name, icon, note, ticked
    const auto made = [](const auto& rule) {
        EXPECT_EQ(JunkCatalogue::findCategory(rule.name), &rule) << rule.name;
        const JunkCategory c = JunkCatalogue::makeCategory(rule);
        EXPECT_TRUE(c.items.empty() && !c.admin) << rule.name;
        return Row(c.name, c.icon, c.note, c.enabled, rule.group);
    };
    EXPECT_EQ(rowsOf(JunkCatalogue::categories(), made), (std::vector<Row>{
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
    }));
    EXPECT_EQ(rowsOf(JunkCatalogue::developerCategories(), made), (std::vector<Row>{
        {"Xcode", "hammer", "Build files and simulator caches · rebuilt when needed", true, CacheKind::developer},
        {"Package Caches", "shippingbox", "Downloaded packages · fetched again when needed", true, CacheKind::developer},
        {"Other Developer Caches", "wrench.and.screwdriver", "Editors, test browsers, runtimes", true,
         CacheKind::developer},
        {"Old node_modules", "folder.badge.minus", "In projects untouched for 90+ days · npm install brings them back",
         true, CacheKind::developer},
    }));
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
        {{}, 0}, {{1, 2, 3}, 6}, {{-5, 10}, 10}, {{most, 1}, most}, {{most - 1, 1}, most},
        {{most / 2 + 1, most / 2 + 1, -1}, most}, {{std::numeric_limits<std::int64_t>::min(), 7}, 7},
    };
    for (const auto& [sizes, total] : cases) {
        JunkCategory cat;
        for (auto size : sizes) cat.items.push_back({"/x", "id", size, true, "x"});
        EXPECT_EQ(cat.total(), total) << sizes.size() << " sizes";
    }
}

// The tables whose names people see, in full; then profile names and installers.
TEST(JunkCatalogue, TablesAndNames) {
    EXPECT_EQ(rowsOf(JunkCatalogue::chromiumBrowsers(), [](auto& b) { return Pair(b.name, b.folder); }),
              (Pairs{{"Chrome", "Google/Chrome"}, {"Edge", "Microsoft Edge"}, {"Brave", "BraveSoftware/Brave-Browser"},
                     {"Arc", "Arc/User Data"}, {"Vivaldi", "Vivaldi"}, {"Opera", "com.operasoftware.Opera"},
                     {"Chromium", "Chromium"}}));
    EXPECT_EQ(rowsOf(JunkCatalogue::offlineDataFolders(), [](auto& f) { return Pair(f.path, f.labelSuffix); }),
              (Pairs{{"Service Worker/CacheStorage", " · Offline site data"},
                     {"Service Worker/ScriptCache", " · Offline site scripts"}}));

    using Place = std::tuple<std::string, std::string, DevKind, bool>;
    EXPECT_EQ(rowsOf(JunkCatalogue::developerPlaces(),
                     [](auto& p) { return Place(p.path, p.label, p.kind, p.tickedByDefault); }),
              (std::vector<Place>{
                  {"Library/Developer/Xcode/DerivedData", "Xcode · DerivedData (build files)", DevKind::xcode, true},
                  {"Library/Developer/CoreSimulator/Caches", "Simulator caches", DevKind::xcode, true},
                  {"Library/Developer/Xcode/Archives", "Xcode Archives", DevKind::xcode, false},
                  {".npm/_cacache", "npm", DevKind::packages, true},
                  {".gradle/caches", "Gradle", DevKind::packages, true},
                  {".cargo/registry/cache", "Cargo downloaded crates", DevKind::packages, true},
                  {".cache/pip", "pip", DevKind::packages, true},
                  {"Library/pnpm/store", "pnpm store (shared by projects)", DevKind::packages, false},
                  {".cache/huggingface", "Hugging Face models", DevKind::other, false}}));

    EXPECT_EQ(rowsOf(JunkCatalogue::deviceSupportPlatforms(),
                     [](auto& p) { return Pair(p.folder, JunkCatalogue::deviceSupportLabel(p, "17.4 (21E219)")); }),
              (Pairs{{"iOS DeviceSupport", "iOS device support · 17.4 (21E219)"},
                     {"watchOS DeviceSupport", "watchOS device support · 17.4 (21E219)"},
                     {"tvOS DeviceSupport", "tvOS device support · 17.4 (21E219)"},
                     {"visionOS DeviceSupport", "visionOS device support · 17.4 (21E219)"},
                     {"macOS DeviceSupport", "macOS device support · 17.4 (21E219)"}}));

    // Labels and globs are checked on a tree below; only the two OneDrive container rules are flagged.
    const auto cloud = JunkCatalogue::cloudRules();
    ASSERT_EQ(cloud.size(), 13u);
    for (std::size_t i = 0; i < cloud.size(); ++i) EXPECT_EQ(cloud[i].flag, i == 6 || i == 7) << cloud[i].label;

    const std::pair<std::string, bool> profiles[] = {
        {"Default", true},   {"Guest Profile", true}, {"Profile 12", true},      {"Profile x y", true},
        {"Profile", false},  {"Profile1", false},     {"profile 1", false},      {"Default\n", false},
        {"Guest Profile 2", false}, {" Profile 1", false}, {"", false},
    };
    for (const auto& [name, isProfile] : profiles) EXPECT_EQ(JunkCatalogue::isProfileName(name), isProfile) << name;

    const std::pair<std::string, bool> installers[] = {
        {"Foo.DMG", true},       {"setup.pkg", true},    {"Xcode_15.xip", true}, {"new\nline.zip", true},
        {"foo.dmg.part", false}, {"foo.tar.gz", false},  {".dmg", false},        {"", false},
        {"foo.dmgx", false},     {"foo.zi", false},      {"foo.dmg ", false},
    };
    for (const auto& [name, installer] : installers) EXPECT_EQ(JunkCatalogue::isInstaller(name), installer) << name;
}

// --- Cloud rules ---------------------------------------------------------------------------------

namespace fs = std::filesystem;

using testing_support::putFile;
using testing_support::putLink;

// Every rule over one home: what each finds, in order, with links neither followed nor listed.
TEST(JunkCatalogue, CloudGlobsOnATree) {
    testing_support::TempDir dir;
    const std::string home = dir / "home";
    const std::string drive = home + "/Library/Application Support/Google/DriveFS";
    const std::string containers = home + "/Library/Containers";
    const std::string storage = home + "/Library/CloudStorage";

    for (const std::string& folder :
         {drive + "/Logs", drive + "/Crashpad", drive + "/cef_cache/Cache", drive + "/cef_cache/Code Cache",
          home + "/Library/Group Containers/UBF8T346G9.OneDriveStandaloneSuite/FileProviderLogs",
          drive + "/1234567/thumbnails_cache", drive + "/acc ount/thumbnails_cache",
          drive + "/.hidden/thumbnails_cache", drive + "/no thumbnails",
          containers + "/com.microsoft.OneDrive-mac/Data/Library/Caches",
          containers + "/com.microsoft.OneDrive-mac/Data/Library/Logs",
          containers + "/com.microsoft.OneDrive.FileProvider/Data/Library/Caches",
          containers + "/com.microsoft.OneDriveLauncher/Data/Library", containers + "/com.microsoft.Word/Data/Library/Caches",
          dir / "elsewhere/Data/Library/Caches", home + "/Dropbox/.dropbox.cache",
          home + "/Dropbox (Personal)/.dropbox.cache/sub", home + "/DropboxNoCache", home + "/dropbox lower/.dropbox.cache",
          storage + "/Dropbox-Team/.dropbox.cache", storage + "/Dropbox-Linked",
          home + "/Library/Application Support/Mega Limited/MEGAsync/logs", home + "/MEGA/.debris",
          home + "/Library/Application Support/Box/Box/logs"}) {
        fs::create_directories(folder);
    }
    putFile(drive + "/a file");
    putFile(home + "/Dropbox\nline/.dropbox.cache");
    putFile(home + "/Dropbox.txt");
    putLink(drive + "/1234567", drive + "/linked");
    putLink(dir / "elsewhere", containers + "/com.microsoft.OneDriveLink");
    putLink(home + "/Dropbox", home + "/DropboxLink");
    putLink(home + "/Dropbox/.dropbox.cache", storage + "/Dropbox-Linked/.dropbox.cache");

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
    fs::create_directories(home + "/.hidden");
    fs::create_directories(home + "/b folder/x");
    putFile(home + "/a\tfile");
    putFile(home + "/c\nname");
    putLink("b folder", home + "/d link");
    // A home whose Library/CloudStorage is a link to the first one's.
    const std::string other = dir / "other";
    fs::create_directories(home + "/Library/CloudStorage/Dropbox/.dropbox.cache");
    putLink(home + "/Library/CloudStorage", other + "/Library/CloudStorage");

    using Paths = std::vector<std::string>;
    const std::pair<std::string, Paths> cases[] = {
        {"*", {home + "/.hidden", home + "/Library", home + "/a\tfile", home + "/b folder", home + "/c\nname"}},
        {"b*/x", {home + "/b folder/x"}},
        {"/b folder//x/", {home + "/b folder/x"}},
        {"./b folder/./x", {home + "/b folder/x"}},
        {"d link/x", {}},
        {"d link", {}},
        {"a\tfile/*", {}},
        {"b folder/../b folder/x", {}},
        {"..", {}},
        {"nothing*", {}},
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
        fs::create_directories(folder + "/thumbnails_cache");
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
