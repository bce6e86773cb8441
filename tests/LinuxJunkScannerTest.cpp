// The junk scanner on a Linux home: one instance of every rule found with its label, category,
// tick and size, and nothing else (documents, ~/.config, a browser profile's logins, a Flatpak
// app's data, a synced folder stay); the XDG folders when set; links; a whole clean brought back
// from the history.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kit/cleaning/JunkModel.hpp"
#include "kit/cleaning/JunkScanner.hpp"
#include "kit/cleaning/LinuxJunkCatalogue.hpp"
#include "kit/cleaning/LinuxJunkScanner.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "support/TrashTestSupport.hpp"

namespace {

namespace fs = std::filesystem;
using brimstell::JunkCategory;

struct LinuxHome {
    testing_support::LinuxTrashHost h;
    quorv::HostScope scope{h.host};
    // Days in labels read the same in every time zone the tests run in.
    LinuxHome() { h.host->calendar.utc = true; }

    std::string at(const std::string& rel) const { return h.home + "/" + rel; }
    void file(const std::string& rel, std::size_t bytes = 12'000) const {
        fs::create_directories(fs::path(at(rel)).parent_path());
        std::ofstream(at(rel)) << std::string(bytes, 'x');
    }
    // A folder holding one file, so that it measures more than its own entry.
    void folder(const std::string& rel, std::size_t bytes = 20'000) const { file(rel + "/data", bytes); }
};

std::int64_t allocated(const std::string& path) {
    std::int64_t sum = 0;
    struct stat st{};
    if (::lstat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) return st.st_blocks * 512;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        if (::lstat(entry.path().c_str(), &st) == 0) sum += st.st_blocks * 512;
    }
    return sum;
}

struct Row {
    std::string rel;
    std::string category;
    std::string label;
    bool selected;
    bool isFile;
};

const std::vector<Row>& everyRule() {
    static const std::vector<Row> rows = {
        {".cache/mozilla", "Browser Caches", "Firefox", true, false},
        {".cache/google-chrome", "Browser Caches", "Chrome", true, false},
        {".cache/BraveSoftware", "Browser Caches", "Brave", true, false},
        {".cache/thumbnails", "Thumbnails", "Thumbnails", true, false},
        {".thumbnails", "Thumbnails", "Thumbnails (older desktops)", true, false},
        {".cache/spotify", "Music & Chat", "Spotify", true, false},
        {".config/Slack/Cache", "Music & Chat", "Slack · Cache", true, false},
        {".config/discord/Code Cache", "Music & Chat", "Discord · Code Cache", true, false},
        {".cache/fontconfig", "Other App Caches", "fontconfig", true, false},
        {".cache/line\nfeed", "Other App Caches", "line\nfeed", true, false},
        {".cache/caf\xe9", "Other App Caches", "caf\xe9", true, false},
        {".config/obsidian/GPUCache", "Other App Caches", "Obsidian · GPUCache", true, false},
        {".var/app/org.gimp.GIMP/cache", "Flatpak & Snap Apps", "Flatpak · org.gimp.GIMP", true, false},
        {"snap/firefox/common/.cache", "Flatpak & Snap Apps", "Snap · firefox", true, false},
        {".xsession-errors", "Logs", ".xsession-errors", true, true},
        {".local/share/xorg/Xorg.0.log", "Logs", "Xorg.0.log", true, true},
        {".config/Code/logs", "Logs", "VS Code · Logs", true, false},
        {"Downloads/tool_1.2_amd64.deb", "Installers", "tool_1.2_amd64.deb", true, true},
        {"Downloads/tool.x86_64.rpm", "Installers", "tool.x86_64.rpm", true, true},
        {"Downloads/Editor-3.AppImage", "Installers", "Editor-3.AppImage", true, true},
        {"Downloads/org.example.App.flatpakref", "Installers", "org.example.App.flatpakref", true, true},
        {"Downloads/src.tar.gz", "Installers", "src.tar.gz", true, true},
        {"Downloads/\xff\xfe.deb", "Installers", "\xff\xfe.deb", true, true},
        {".npm/_cacache", "Package Caches", "npm", true, false},
        {".gradle/caches", "Package Caches", "Gradle", true, false},
        {".cargo/registry/cache", "Package Caches", "Cargo downloaded crates", true, false},
        {".cache/pip", "Package Caches", "pip", true, false},
        {".cache/yarn", "Package Caches", "Yarn", true, false},
        {".m2/repository", "Package Caches", "Maven repository", false, false},
        {".local/share/pnpm/store", "Package Caches", "pnpm store (shared by projects)", false, false},
        {".cache/JetBrains", "Other Developer Caches", "JetBrains IDEs", true, false},
        {".config/Code/CachedData", "Other Developer Caches", "VS Code · CachedData", true, false},
        {".cache/go-build", "Other Developer Caches", "Go build cache", true, false},
        {".cache/huggingface", "Other Developer Caches", "Hugging Face models", false, false},
        {"code/old-app/node_modules", "Old node_modules", "old-app · untouched since 2026-06-22", true, false},
    };
    return rows;
}

// What must never be listed: documents, settings, a browser profile's logins and history, a
// Flatpak app's own data, a synced folder, loose files among the caches, old Downloads.
const std::vector<std::string>& strangers() {
    static const std::vector<std::string> rels = {
        "Documents/report.odt", ".config/monitors.xml", ".config/google-chrome/Default/Login Data",
        ".config/google-chrome/Default/History", ".mozilla/firefox/ab12.default/logins.json",
        ".config/Slack/storage/state", ".var/app/org.gimp.GIMP/data/brushes/b.gbr",
        ".var/app/org.gimp.GIMP/config/gimprc", "snap/firefox/common/profile/places.sqlite",
        "Dropbox/holiday.jpg", "Nextcloud/notes.md", ".cache/event-sound-cache.tdb", "Downloads/notes.txt",
        ".local/share/recently-used.xbel", ".local/state/wireplumber/restore",
    };
    return rels;
}

void age(const std::string& path, double when) {
    const timespec times[2] = {{static_cast<time_t>(when), 0}, {static_cast<time_t>(when), 0}};
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        ::utimensat(AT_FDCWD, entry.path().c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

void layOut(const LinuxHome& l) {
    for (const auto& row : everyRule()) row.isFile ? l.file(row.rel) : l.folder(row.rel);
    l.file("code/old-app/package.json");
    age(l.at("code/old-app"), 1'790'000'000 - 91 * 86400.0);
    for (const auto& rel : strangers()) l.file(rel);
}

TEST(LinuxJunkScanner, FindsOneOfEveryRuleAndNothingElse) {
    LinuxHome l;
    layOut(l);
    // A Trash item, through the desktop's Trash as the user would put it there.
    l.file("Documents/old.txt");
    ASSERT_EQ(brimstell::FS::trash(std::vector<std::string>{l.at("Documents/old.txt")}).moved.size(), 1u);
    fs::create_directories(l.at("Documents/caches"));
    ::symlink(l.at("Documents").c_str(), l.at(".cache/linked").c_str());  // a link in the cache folder
    ::symlink(l.at("Documents").c_str(), l.at(".var/app/org.example.Linked").c_str());
    ::symlink(l.at("Documents/caches").c_str(), l.at(".config/discord/GPUCache").c_str());  // a cache swapped for a link
    ::symlink(l.at("Documents").c_str(), l.at(".m2/repository/linked").c_str());
    ::symlink(l.at("Documents/report.odt").c_str(), l.at("Downloads/report.deb").c_str());

    std::vector<std::pair<int, int>> progress;
    const auto categories = brimstell::JunkScanner::scan(l.h.home, [&](int d, int t) { progress.emplace_back(d, t); });

    std::vector<std::pair<std::string, bool>> shown;
    std::map<std::string, std::pair<std::string, const brimstell::FileItem*>> found;
    for (const auto& c : categories) {
        shown.emplace_back(c.name, c.enabled);
        EXPECT_FALSE(c.admin) << c.name;
        for (const auto& item : c.items) found[item.location] = {c.name, &item};
    }
    EXPECT_EQ(shown, (std::vector<std::pair<std::string, bool>>{
                         {"Browser Caches", true}, {"Thumbnails", true}, {"Music & Chat", true},
                         {"Other App Caches", true}, {"Flatpak & Snap Apps", true}, {"Logs", true},
                         {"Installers", true}, {"Trash", false}, {"Package Caches", true},
                         {"Other Developer Caches", true}, {"Old node_modules", true}}));
    for (const auto& row : everyRule()) {
        SCOPED_TRACE(row.rel);
        const auto it = found.find(l.at(row.rel));
        ASSERT_NE(it, found.end());
        EXPECT_EQ(it->second.first, row.category);
        EXPECT_EQ(it->second.second->label, row.label);
        EXPECT_EQ(it->second.second->selected, row.selected);
        EXPECT_EQ(it->second.second->size, allocated(l.at(row.rel)));
        EXPECT_GT(it->second.second->size, 0);
    }
    const auto trashed = found.find(l.h.trash + "/files/old.txt");
    ASSERT_NE(trashed, found.end());
    EXPECT_EQ(trashed->second.first, "Trash");
    EXPECT_EQ(trashed->second.second->label, "old.txt");
    EXPECT_EQ(found.size(), everyRule().size() + 1) << "something outside the rules was listed";
    EXPECT_EQ(progress, (std::vector<std::pair<int, int>>{{1, 6}, {2, 6}, {3, 6}, {4, 6}, {5, 6}, {6, 6}}));
}

// With the XDG variables set, the caches, the pnpm store and the Trash of another home are looked
// for where they point; another account's home never takes this user's variables.
TEST(LinuxJunkScanner, CacheAndDataFoldersFollowTheXdgVariables) {
    LinuxHome l;
    l.h.host->environment["XDG_CACHE_HOME"] = l.h.base + "/fast/cache/";
    l.h.host->environment["XDG_DATA_HOME"] = l.h.base + "/fast/data";
    struct Case {
        std::string home;
        std::string cache;
        std::string data;
    };
    const std::string other = l.h.base + "/home/another";
    const std::vector<Case> cases = {
        {l.h.home, l.h.base + "/fast/cache", l.h.base + "/fast/data"},
        {l.h.home + "/", l.h.base + "/fast/cache", l.h.base + "/fast/data"},
        {other, other + "/.cache", other + "/.local/share"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(brimstell::LinuxJunkScanner::cacheFolder(c.home), c.cache) << c.home;
        EXPECT_EQ(brimstell::LinuxJunkScanner::dataFolder(c.home), c.data) << c.home;
    }
    l.h.host->environment["XDG_CACHE_HOME"] = "relative/cache";
    EXPECT_EQ(brimstell::LinuxJunkScanner::cacheFolder(l.h.home), l.h.home + "/.cache");

    l.h.host->environment["XDG_CACHE_HOME"] = l.h.base + "/fast/cache";
    fs::create_directories(l.h.base + "/fast/cache/go-build/00");
    std::ofstream(l.h.base + "/fast/cache/go-build/00/a") << std::string(9000, 'g');
    fs::create_directories(l.h.base + "/fast/cache/mozilla/firefox");
    l.folder(".cache/mozilla");  // the default place, which the variable moved away from
    const auto categories = brimstell::JunkScanner::scan(l.h.home);
    std::set<std::string> locations;
    for (const auto& c : categories) {
        for (const auto& item : c.items) locations.insert(item.location);
    }
    EXPECT_EQ(locations, (std::set<std::string>{l.h.base + "/fast/cache/go-build", l.h.base + "/fast/cache/mozilla"}));
}

// Installer names by their last extension, in any case; a name that is only an extension is none.
TEST(LinuxJunkCatalogue, InstallerNames) {
    const std::vector<std::pair<std::string, bool>> cases = {
        {"a.deb", true},       {"A.DEB", true},         {"x.AppImage", true}, {"x.appimage", true},
        {"app.flatpakref", true}, {"s.tar.xz", true},   {"s.tar.zst", true},  {"s.7z", true},
        {"x.zip", true},       {".deb", false},         {"deb", false},       {"notes.txt", false},
        {"x.debx", false},     {"x.deb.part", false},   {"x.", false},        {"x.\xff\xfe", false},
        {"line\nfeed.rpm", true},
    };
    for (const auto& [name, installer] : cases) {
        EXPECT_EQ(brimstell::LinuxJunkCatalogue::isInstaller(name), installer) << name;
    }
}

// Everything a scan lists, all ticked and cleaned, comes back from the history as it was; what
// no rule names is never touched.
TEST(LinuxJunkScanner, AWholeCleanComesBackFromTheHistory) {
    LinuxHome l;
    layOut(l);
    brimstell::JunkModel::Sources sources = brimstell::JunkModel::defaultSources();
    sources.adminEnabled = [] { return false; };
    brimstell::JunkModel model(sources);
    model.scan();
    for (auto& c : model.cats) {
        c.enabled = true;
        for (auto& item : c.items) item.selected = true;
    }
    const auto result = model.clean();
    EXPECT_EQ(result.skipped, 0u);
    for (const auto& row : everyRule()) EXPECT_FALSE(fs::exists(l.at(row.rel))) << row.rel;
    for (const auto& rel : strangers()) EXPECT_TRUE(fs::exists(l.at(rel))) << rel;

    auto& history = brimstell::History::shared();
    for (const auto& r : history.restore(history.entries())) EXPECT_TRUE(r.ok()) << r.message();
    for (const auto& row : everyRule()) {
        const std::string path = l.at(row.rel) + (row.isFile ? "" : "/data");
        ASSERT_TRUE(fs::exists(path)) << row.rel;
        EXPECT_EQ(fs::file_size(path), row.isFile ? 12'000u : 20'000u) << row.rel;
    }
}

}  // namespace
