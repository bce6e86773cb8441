// The junk scanner on sandbox homes: one instance of every rule found with its label, category,
// tick and size and nothing else; the overlaps between the classes; old node_modules by age, depth,
// links and hostile names; iOS backup labels from the backups' own Info.plist.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "kit/cleaning/JunkScanner.hpp"
#include "kit/files/FS.hpp"
#include "support/TestSupport.hpp"
#include "support/TrashTestSupport.hpp"
#include "support/plist/Plist.hpp"

namespace {

using brimstell::JunkCategory;
using brimstell::JunkScanner;
namespace fs = std::filesystem;

constexpr double kDay = 86400;

// Allocated bytes of everything at path, each inode once, links not followed: what a scan must
// report for the item, counted here without the scanner's own walker.
// What lies beneath a folder (its own blocks left out), or a file's own blocks.
std::int64_t allocated(const std::string& path) {
    std::set<std::pair<dev_t, ino_t>> seen;
    std::int64_t sum = 0;
    auto add = [&](const fs::path& p) {
        struct stat st{};
        if (::lstat(p.c_str(), &st) == 0 && seen.emplace(st.st_dev, st.st_ino).second) sum += st.st_blocks * 512;
    };
    struct stat top{};
    if (::lstat(path.c_str(), &top) == 0 && !S_ISDIR(top.st_mode)) add(path);
    std::error_code ec;
    if (fs::is_directory(fs::symlink_status(path, ec))) {
        for (auto it = fs::recursive_directory_iterator(path, ec); !ec && it != fs::recursive_directory_iterator();
             it.increment(ec)) {
            add(it->path());
        }
    }
    return sum;
}

// Sets the modification time of path and everything in it, links not followed.
void age(const std::string& path, double when) {
    const timespec times[2] = {{static_cast<time_t>(when), 0}, {static_cast<time_t>(when), 0}};
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(path, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        ::utimensat(AT_FDCWD, it->path().c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

struct Home {
    testing_support::SandboxHost s;
    quorv::HostScope scope{s.host};
    std::string home = s.mac.home();

    std::string at(const std::string& rel) const { return home + "/" + rel; }
    // A folder holding one file of some size, so that it measures more than its own entry.
    void folder(const std::string& rel, std::size_t bytes = 20'000) { s.mac.writeFileOfSize("~/" + rel + "/data", bytes); }
    void file(const std::string& rel, std::size_t bytes = 12'000) { s.mac.writeFileOfSize("~/" + rel, bytes); }
};

struct Found {
    std::string category;
    const brimstell::FileItem* item;
};

std::map<std::string, Found> byLocation(const std::vector<JunkCategory>& categories) {
    std::map<std::string, Found> out;
    for (const auto& category : categories) {
        for (const auto& item : category.items) out[item.location] = {category.name, &item};
    }
    return out;
}

std::vector<std::pair<std::string, std::string>> locationsAndLabels(const std::vector<JunkCategory>& categories) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& category : categories) {
        for (const auto& item : category.items) out.emplace_back(item.location, item.label);
    }
    return out;
}

TEST(JunkScanner, FindsOneOfEveryRuleAndNothingElse) {
    Home h;
    const std::string chrome = "Library/Application Support/Google/Chrome";
    const std::string backup = "Library/Application Support/MobileSync/Backup";
    struct Row {
        std::string rel;
        std::string category;
        std::string label;
        bool selected;
        bool isFile;
    };
    const std::vector<Row> rows = {
        {chrome + "/Default/Code Cache", "Browser Caches", "Chrome · Default · Code Cache", true, false},
        {chrome + "/GrShaderCache", "Browser Caches", "Chrome · GrShaderCache", true, false},
        {"Library/Application Support/BraveSoftware/Brave-Browser/Profile 1/GPUCache", "Browser Caches",
         "Brave · Profile 1 · GPUCache", true, false},
        {"Library/Caches/com.apple.Safari", "Browser Caches", "com.apple.Safari", true, false},
        {"Library/Caches/Google", "Browser Caches", "Google (Chrome and other Google apps)", true, false},
        {chrome + "/Default/Service Worker/CacheStorage", "Website Offline Data", "Chrome · Offline site data", true, false},
        {"Library/Application Support/Microsoft Edge/Guest Profile/Service Worker/ScriptCache", "Website Offline Data",
         "Edge · Offline site scripts", true, false},
        {"Library/Caches/com.example.ShipIt", "App Updates", "com.example.ShipIt", true, false},
        {"Library/Caches/com.adobe.Photoshop", "Creative Apps", "com.adobe.Photoshop", true, false},
        {"Library/Caches/com.apple.music", "Music & Chat", "com.apple.music", true, false},
        {"Library/Caches/com.apple.nsurlsessiond", "macOS Caches", "com.apple.nsurlsessiond", true, false},
        {"Library/Caches/com.example.notes", "Other App Caches", "com.example.notes", true, false},
        {backup + "/00008030-BBBB", "iOS Backups", "00008030-BBBB", true, false},
        {"Library/iTunes/iPhone Software Updates", "iOS Updates", "iPhone Software Updates", true, false},
        {"Library/Containers/com.apple.mail/Data/Library/Mail Downloads/3F2A", "Mail Attachments", "3F2A", true, false},
        {"Library/Logs/DiagnosticReports", "Logs", "DiagnosticReports", true, false},
        {"Library/Application Support/Google/DriveFS/Logs", "Cloud Storage", "Google Drive · Logs", true, false},
        {"Library/Application Support/Google/DriveFS/104233/thumbnails_cache", "Cloud Storage",
         "Google Drive · Thumbnails", true, false},
        {"Library/Containers/com.microsoft.OneDrive-mac/Data/Library/Caches", "Cloud Storage", "OneDrive · Cache", true,
         false},
        {"Dropbox/.dropbox.cache", "Cloud Storage", "Dropbox · Cache", true, false},
        {"Library/CloudStorage/Dropbox/.dropbox.cache", "Cloud Storage", "Dropbox · Cache", true, false},
        {"MEGA/.debris", "Cloud Storage", "MEGA · Local rubbish bin", true, false},
        {"Downloads/Setup.DMG", "Installers", "Setup.DMG", true, true},
        {".Trash/old report.txt", "Trash", "old report.txt", true, true},
        {"Library/Caches/com.apple.dt.Xcode", "Xcode", "com.apple.dt.Xcode", true, false},
        {"Library/Developer/Xcode/DerivedData", "Xcode", "Xcode · DerivedData (build files)", true, false},
        {"Library/Developer/Xcode/Archives", "Xcode", "Xcode Archives", false, false},
        {"Library/Developer/Xcode/iOS DeviceSupport/17.4 (21E219)", "Xcode", "iOS device support · 17.4 (21E219)", true,
         false},
        {".npm/_cacache", "Package Caches", "npm", true, false},
        {"Library/pnpm/store", "Package Caches", "pnpm store (shared by projects)", false, false},
        {"Library/Caches/Homebrew", "Other Developer Caches", "Homebrew downloads", true, false},
        {".cache/huggingface", "Other Developer Caches", "Hugging Face models", false, false},
        {"code/old-app/node_modules", "Old node_modules", "old-app · untouched since 2026-06-22", true, false},
    };
    for (const auto& row : rows) row.isFile ? h.file(row.rel) : h.folder(row.rel);
    h.file("code/old-app/package.json");
    age(h.at("code/old-app"), h.s.now - 91 * kDay);
    h.file("code/new-app/node_modules/left-pad/index.js");
    age(h.at("code/new-app"), h.s.now - 1 * kDay);

    // Things no rule names, and synced files beside the caches that may go.
    const std::vector<std::string> strangers = {
        chrome + "/Default/Login Data", chrome + "/Default/History", "Documents/report.txt", "Downloads/notes.txt",
        "Library/CloudStorage/Dropbox/notes.txt", "Library/Mobile Documents/com~apple~CloudDocs/a.txt",
        "Dropbox/holiday.jpg", "Library/Caches/loose.db", ".Trash/.DS_Store", "Library/Logs/.DS_Store",
    };
    for (const auto& rel : strangers) h.file(rel);
    // Developer places that measure 0: an empty file, and a folder with nothing beneath it (its
    // own blocks don't count).
    h.s.mac.writeFile("~/.cache/pip", "");
    testing_support::makeFolders(h.at(".cargo/registry/cache"));
    ::symlink(h.at("Documents").c_str(), h.at(".gradle").c_str());
    h.folder("Documents/caches");  // .gradle/caches through a link: not followed

    std::vector<std::pair<int, int>> progress;
    const auto caller = std::this_thread::get_id();
    const auto categories = JunkScanner::scan(h.home, [&](int done, int total) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        progress.emplace_back(done, total);
    });

    const std::vector<std::pair<std::string, bool>> expectedCategories = {
        {"Browser Caches", true},  {"Website Offline Data", false}, {"App Updates", true},
        {"Creative Apps", false},  {"Music & Chat", true},          {"macOS Caches", true},
        {"Other App Caches", true}, {"iOS Backups", false},         {"iOS Updates", true},
        {"Mail Attachments", true}, {"Logs", true},                 {"Cloud Storage", true},
        {"Installers", true},      {"Trash", false},                {"Xcode", true},
        {"Package Caches", true},  {"Other Developer Caches", true}, {"Old node_modules", true},
    };
    std::vector<std::pair<std::string, bool>> shown;
    for (const auto& category : categories) {
        shown.emplace_back(category.name, category.enabled);
        EXPECT_FALSE(category.admin) << category.name;
    }
    EXPECT_EQ(shown, expectedCategories);

    const auto found = byLocation(categories);
    std::set<std::string> ids;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rel);
        const auto it = found.find(h.at(row.rel));
        ASSERT_NE(it, found.end());
        EXPECT_EQ(it->second.category, row.category);
        EXPECT_EQ(it->second.item->label, row.label);
        EXPECT_EQ(it->second.item->selected, row.selected);
        EXPECT_EQ(it->second.item->size, allocated(h.at(row.rel)));
        EXPECT_GT(it->second.item->size, 0);
        EXPECT_EQ(it->second.item->id.size(), 36u);
        ids.insert(it->second.item->id);
    }
    EXPECT_EQ(found.size(), rows.size()) << "something outside the rules was listed";
    EXPECT_EQ(ids.size(), rows.size()) << "ids are not fresh";

    const std::vector<std::pair<int, int>> stages = {{1, 8}, {2, 8}, {3, 8}, {4, 8}, {5, 8}, {6, 8}, {7, 8}, {8, 8}};
    EXPECT_EQ(progress, stages);
}

// How each name is classified and labelled is JunkCatalogue's table; here one folder for each way
// the scan files a cache (a label of its own, Xcode, a package label, the rest) and their order.
TEST(JunkScanner, CacheFolderOverlapsAndOrder) {
    Home h;
    const struct {
        std::string name;
        std::string category;
        std::string label;
    } cases[] = {
        {"google", "Browser Caches", "Google (Chrome and other Google apps)"},
        {"com.apple.dt.instruments", "Xcode", "com.apple.dt.instruments"},
        {"Microsoft Edge AutoUpdate", "Browser Caches", "Microsoft Edge AutoUpdate"},
        {"org.swift.swiftpm", "Other Developer Caches", "Swift Package Manager"},
        {"line\nfeed \xff", "Other App Caches", "line\nfeed \xff"},
    };
    for (const auto& c : cases) h.folder("Library/Caches/" + c.name);

    const auto categories = JunkScanner::libraryCaches(h.home);
    const auto found = byLocation(categories);
    EXPECT_EQ(found.size(), std::size(cases));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto it = found.find(h.at("Library/Caches/" + c.name));
        ASSERT_NE(it, found.end());
        EXPECT_EQ(it->second.category, c.category);
        EXPECT_EQ(it->second.item->label, c.label);
        EXPECT_EQ(it->second.item->size, 0) << "sub-scans leave measuring to measure()";
    }
    // Within a category, folders come in byte order of their names ("M" before "g"), not by letter.
    ASSERT_FALSE(categories.empty());
    EXPECT_EQ(categories.front().name, "Browser Caches");
    const std::vector<std::pair<std::string, std::string>> browser = {
        {h.at("Library/Caches/Microsoft Edge AutoUpdate"), "Microsoft Edge AutoUpdate"},
        {h.at("Library/Caches/google"), "Google (Chrome and other Google apps)"},
    };
    EXPECT_EQ(locationsAndLabels({categories.front()}), browser);
}

TEST(JunkScanner, OldNodeModulesByAgeDepthLinksAndNames) {
    Home h;
    const double now = h.s.now;
    struct Project {
        std::string rel;                  // the project folder
        double ageDays;                   // of everything in it
        std::optional<std::string> recent;  // a file touched a day ago, below the project
        std::vector<std::string> listed;  // node_modules expected, with labels' folder names
    };
    const std::string deep = "src/a/b/c/d/e/f/notes.md";
    const std::vector<Project> projects = {
        {"code/old91", 91, std::nullopt, {"code/old91/node_modules"}},
        {"code/exactly90", 90, std::nullopt, {"code/exactly90/node_modules"}},
        {"code/young89", 89, std::nullopt, {}},
        {"code/kept-young", 200, deep, {}},
        {"code/installed-lately", 200, "node_modules/pkg/index.js", {"code/installed-lately/node_modules"}},
        {"code/mono", 120, std::nullopt, {"code/mono/node_modules", "code/mono/packages/web/node_modules"}},
        {"Library/Projects/lib-app", 200, std::nullopt, {}},
        {".hidden/app", 200, std::nullopt, {}},
        {"Dropbox (Work)/site", 200, std::nullopt, {}},  // synced: moving it would remove it everywhere
        {"MEGA/app", 200, std::nullopt, {}},
        {"a/b/c/d/e/f/g/h/i/j/too-deep", 200, std::nullopt, {}},
        {"a/b/c/d/e/f/g/h/i/deep-enough", 200, std::nullopt, {"a/b/c/d/e/f/g/h/i/deep-enough/node_modules"}},
        {"code/we\nird \xfe", 200, std::nullopt, {"code/we\nird \xfe/node_modules"}},
    };
    for (const auto& p : projects) {
        h.file(p.rel + "/node_modules/pkg/index.js");
        h.file(p.rel + "/src/main.js");
        if (p.rel == "code/mono") h.file(p.rel + "/packages/web/node_modules/x/y.js");
        if (p.recent) h.file(p.rel + "/" + *p.recent);
        age(h.at(p.rel), now - p.ageDays * kDay);
        if (p.recent) age(h.at(p.rel + "/" + *p.recent), now - 1 * kDay);
    }
    h.file("node_modules/stray/node_modules/dep/index.js");  // in the home folder itself: no project
    age(h.at("node_modules"), now - 300 * kDay);
    // Links: a loop, and a second way to an old project; neither is followed.
    ::symlink("..", h.at("code/loop").c_str());
    ::symlink(h.at("code/old91").c_str(), h.at("Documents/old91-link").c_str());

    const std::map<std::string, std::string> days = {
        {"code/old91", "2026-06-22"}, {"code/exactly90", "2026-06-23"}, {"code/installed-lately", "2026-03-05"},
        {"code/mono", "2026-05-24"},  {"a/b/c/d/e/f/g/h/i/deep-enough", "2026-03-05"},
        {"code/we\nird \xfe", "2026-03-05"},
    };
    std::vector<std::pair<std::string, std::string>> expected;
    for (const auto& p : projects) {
        for (const auto& rel : p.listed) {
            const std::string holder = rel.substr(0, rel.rfind('/'));
            expected.emplace_back(h.at(rel), holder.substr(holder.rfind('/') + 1) + " · untouched since " + days.at(p.rel));
        }
    }
    std::sort(expected.begin(), expected.end());

    auto got = locationsAndLabels(JunkScanner::oldNodeModules(h.home, now, 90));
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, expected);
}

TEST(JunkScanner, BackupLabelsFromInfoPlist) {
    Home h;
    const std::string backups = "Library/Application Support/MobileSync/Backup/";
    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n<dict>\n"
        "\t<key>Build Version</key>\n\t<string>22A3354</string>\n"
        "\t<key>Device Name</key>\n\t<string>Ann's iPhone 15</string>\n"
        "\t<key>Last Backup Date</key>\n\t<date>2026-09-02T08:30:00Z</date>\n"
        "\t<key>Product Type</key>\n\t<string>iPhone15,4</string>\n"
        "</dict>\n</plist>\n";
    const std::string nameOnly =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
        "<key>Device Name</key><string>iPad</string></dict></plist>\n";
    const std::string binary = quorv::plist::toBinary(quorv::Value(quorv::Value::Dict{
        {"Device Name", quorv::Value("Old\niPhone")}, {"Last Backup Date", quorv::Value(quorv::Date{1'600'000'000})}}));
    const struct {
        std::string folder;
        std::optional<std::string> info;
        std::string label;
    } cases[] = {
        {"00008101-AAAA", xml, "Ann's iPhone 15 · 2026-09-02"},
        {"00008101-BBBB", nameOnly, "iPad"},
        {"00008101-CCCC", binary, "Old\niPhone · 2020-09-13"},
        {"00008101-DDDD", std::string("<plist><dict><key>Device"), "00008101-DDDD"},
        {"00008101-EEEE", std::nullopt, "00008101-EEEE"},
        {"0000\n8101-FFFF", std::string("<plist version=\"1.0\"><dict><key>Device Name</key><string></string></dict></plist>"),
         "0000\n8101-FFFF"},
    };
    for (const auto& c : cases) {
        h.folder(backups + c.folder);
        if (c.info) h.s.mac.writeFile("~/" + backups + c.folder + "/Info.plist", *c.info);
    }
    // An Info.plist that is a link to a good one elsewhere is not read; a loose file is no backup.
    h.folder(backups + "00008101-GGGG");
    ::symlink(h.at(backups + "00008101-AAAA/Info.plist").c_str(), h.at(backups + "00008101-GGGG/Info.plist").c_str());
    h.file(backups + "notes.txt");

    std::vector<std::pair<std::string, std::string>> expected;
    for (const auto& c : cases) expected.emplace_back(h.at(backups + c.folder), c.label);
    expected.emplace_back(h.at(backups + "00008101-GGGG"), "00008101-GGGG");
    std::sort(expected.begin(), expected.end());

    const auto categories = JunkScanner::iosBackups(h.home);
    ASSERT_EQ(categories.size(), 1u);
    EXPECT_EQ(categories[0].name, "iOS Backups");
    EXPECT_FALSE(categories[0].enabled);
    EXPECT_EQ(locationsAndLabels(categories), expected);
}

// A real backup's binary Info.plist, as a Mac writes it.
TEST(JunkScanner, BackupLabelFromARealInfoPlist) {
    const std::string fixture = std::string(BRIMSTELL_SHARED_DIR) + "/fixtures/real/ios_backup_plist/mvt_ios_backup_Info_binary.plist";
    if (!std::filesystem::exists(fixture)) GTEST_SKIP() << "the real fixtures are not beside the checkout: " << fixture;
    Home h;
    const std::string backup = "Library/Application Support/MobileSync/Backup/00008030-real";
    h.folder(backup);
    std::filesystem::copy_file(fixture, h.at(backup + "/Info.plist"));
    const auto categories = JunkScanner::iosBackups(h.home);
    ASSERT_EQ(categories.size(), 1u);
    EXPECT_EQ(locationsAndLabels(categories),
              (std::vector<std::pair<std::string, std::string>>{{h.at(backup), "iPhone · 2021-12-03"}}));
}

TEST(JunkScanner, MissingOrEmptyHomeFindsNothing) {
    Home h;
    for (const std::string& home : std::vector<std::string>{h.at("no-such-folder"), std::string(), h.home}) {
        SCOPED_TRACE(home);
        int calls = 0;
        EXPECT_TRUE(JunkScanner::scan(home, [&](int, int) { ++calls; }).empty());
        EXPECT_EQ(calls, 8);
    }
}

// On Linux the Trash category lists the desktop's Trash, where the user's Trash really is.
TEST(JunkScannerLinux, TrashComesFromTheDesktopTrash) {
    testing_support::LinuxTrashHost h;
    quorv::HostScope scope(h.host);
    const std::string file = h.home + "/Documents/report.pdf";
    std::filesystem::create_directories(h.home + "/Documents");
    std::ofstream(file) << "old";
    ASSERT_EQ(brimstell::FS::trash(std::vector<std::string>{file}).moved.size(), 1u);

    const auto categories = brimstell::JunkScanner::userFolders(h.home);
    ASSERT_EQ(categories.size(), 1u);
    EXPECT_EQ(categories[0].name, "Trash");
    ASSERT_EQ(categories[0].items.size(), 1u);
    EXPECT_EQ(categories[0].items[0].location, h.trash + "/files/report.pdf");
    EXPECT_EQ(categories[0].items[0].label, "report.pdf");
}

}  // namespace
