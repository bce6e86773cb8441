#include "kit/cleaning/JunkScanner.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/LinuxJunkScanner.hpp"
#include "kit/cleaning/NodeModules.hpp"
#include "kit/cleaning/ScanItems.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/SizeWalker.hpp"
#include "support/host/Host.hpp"
#include "support/host/TrashBackend.hpp"
#include "support/plist/Plist.hpp"

namespace brimstell {

namespace {

// Info.plist of a backup is a few kilobytes; anything much bigger is not one.
constexpr std::size_t kMaxInfoPlist = 4u << 20;

using scanitems::joined;
using scanitems::makeItem;
using scanitems::trimmed;

// Files a Finder keeps in every folder, and Brimstell's own bookkeeping in a Trash: not items.
bool isBookkeeping(std::string_view name) {
    return name == ".DS_Store" || name == ".localized" || name.starts_with(".brimstell-");
}

// The Mac's categories in the list's order.
class Found : public scanitems::Found {
public:
    using scanitems::Found::add;
    std::vector<JunkCategory> categories() { return scanitems::Found::categories(JunkCatalogue::categories()); }
};

// Each entry of the folder at relative below home (bookkeeping files left out) as an item of
// category, labelled with its name, when keep says so.
template <class Keep>
void addEntries(Found& found, int homeFd, const std::string& home, std::string_view relative,
                std::string_view category, Keep keep) {
    const auto fd = FolderListing::openBelow(homeFd, relative);
    if (!fd) return;
    const std::string folder = joined(home, relative);
    for (const auto& entry : FolderListing::list(fd.get())) {
        if (isBookkeeping(entry.name) || !keep(entry)) continue;
        found.add(category, makeItem(joined(folder, entry.name), entry.name));
    }
}

// The entry at relative below the open folder, no link followed on the way or at the end.
std::optional<struct stat> statBelow(int folderFd, std::string_view relative) {
    const auto slash = relative.rfind('/');
    const std::string_view parentPath = slash == std::string_view::npos ? std::string_view() : relative.substr(0, slash);
    const auto parent = FolderListing::openBelow(folderFd, parentPath);
    if (!parent) return std::nullopt;
    return FolderListing::statAt(parent.get(), std::string(relative.substr(slash == std::string_view::npos ? 0 : slash + 1)));
}

bool isDeveloperCategory(std::string_view name) {
    const auto rules = JunkCatalogue::developerCategories();
    return std::any_of(rules.begin(), rules.end(), [&](const CategoryRule& rule) { return rule.name == name; });
}

// "iPhone 15 · 2026-11-02" from a backup's Info.plist; nullopt without a device name.
std::optional<std::string> backupLabel(int backupFd) {
    const auto bytes = FolderListing::readAt(backupFd, "Info.plist", kMaxInfoPlist);
    if (!bytes) return std::nullopt;
    const auto info = quorv::plist::parse(*bytes);
    if (!info) return std::nullopt;
    const auto* name = quorv::plist::find(*info, JunkCatalogue::backupNameKey);
    const auto* text = name ? name->get<std::string>() : nullptr;
    if (!text || text->empty()) return std::nullopt;
    std::string label = *text;
    const auto* date = quorv::plist::find(*info, JunkCatalogue::backupDateKey);
    if (const auto* when = date ? date->get<quorv::Date>() : nullptr) {
        label += " · ";
        label += JunkScanner::dayText(when->since1970);
    }
    return label;
}

}  // namespace

std::string JunkScanner::dayText(double time) {
    // The calendar's short text is "2026-11-21 14:05"; the day is its first ten characters.
    return quorv::host().calendar.shortText(time).substr(0, 10);
}

std::vector<JunkCategory> JunkScanner::libraryCaches(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    const auto fd = FolderListing::openBelow(homeFd.get(), JunkCatalogue::cachesFolder);
    if (!fd) return {};
    Found found;
    const std::string folder = joined(home, JunkCatalogue::cachesFolder);
    for (const auto& entry : FolderListing::list(fd.get())) {
        // Only folders count: the rules speak of an app's cache folder, and a loose file here (a
        // lock, a socket, a database some daemon holds open) is nobody's cache folder to clear.
        if (!entry.isFolder()) continue;
        found.add(JunkCatalogue::cacheCategory(entry.name),
                  makeItem(joined(folder, entry.name), JunkCatalogue::cacheLabel(entry.name)));
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::browserData(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    Found found;
    for (const auto& browser : JunkCatalogue::chromiumBrowsers()) {
        std::string relative(JunkCatalogue::applicationSupport);
        relative += '/';
        relative += browser.folder;
        const auto browserFd = FolderListing::openBelow(homeFd.get(), relative);
        if (!browserFd) continue;
        const std::string folder = joined(home, relative);
        const std::string name(browser.name);
        const auto entries = FolderListing::list(browserFd.get());
        auto folderNamed = [&](std::string_view wanted) {
            return std::any_of(entries.begin(), entries.end(),
                               [&](const FolderEntry& e) { return e.isFolder() && e.name == wanted; });
        };
        // Beside the profiles: "Chrome · ShaderCache".
        for (const auto cache : JunkCatalogue::topLevelCacheFolders()) {
            if (folderNamed(cache)) found.add(junk::browserCaches, makeItem(joined(folder, cache), name + " · " + std::string(cache)));
        }
        // In a profile: "Chrome · Profile 1 · GPUCache", the profile named so that two profiles'
        // items tell apart.
        for (const auto& profile : entries) {
            if (!profile.isFolder() || !JunkCatalogue::isProfileName(profile.name)) continue;
            const auto profileFd = FolderListing::openBelow(browserFd.get(), profile.name);
            if (!profileFd) continue;
            const std::string profileFolder = joined(folder, profile.name);
            for (const auto cache : JunkCatalogue::profileCacheFolders()) {
                const auto st = FolderListing::statAt(profileFd.get(), std::string(cache));
                if (!st || !S_ISDIR(st->st_mode)) continue;
                found.add(junk::browserCaches, makeItem(joined(profileFolder, cache),
                                                        name + " · " + profile.name + " · " + std::string(cache)));
            }
            for (const auto& offline : JunkCatalogue::offlineDataFolders()) {
                if (!FolderListing::openBelow(profileFd.get(), offline.path)) continue;
                found.add(junk::websiteOfflineData,
                          makeItem(joined(profileFolder, offline.path), name + std::string(offline.labelSuffix)));
            }
        }
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::iosBackups(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    const auto fd = FolderListing::openBelow(homeFd.get(), JunkCatalogue::iosBackupsFolder);
    if (!fd) return {};
    Found found;
    const std::string folder = joined(home, JunkCatalogue::iosBackupsFolder);
    for (const auto& entry : FolderListing::list(fd.get())) {
        if (!entry.isFolder()) continue;
        // A backup whose Info.plist can't be read is still a backup: listed under its folder's name.
        const auto backupFd = FolderListing::openBelow(fd.get(), entry.name);
        auto label = backupFd ? backupLabel(backupFd.get()) : std::nullopt;
        found.add(junk::iosBackups, makeItem(joined(folder, entry.name), label.value_or(entry.name)));
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::userFolders(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    Found found;
    for (const auto relative : JunkCatalogue::iosUpdateFolders()) {
        const auto st = statBelow(homeFd.get(), relative);
        const std::string name(relative.substr(relative.rfind('/') + 1));
        if (st && !S_ISLNK(st->st_mode)) found.add(junk::iosUpdates, makeItem(joined(home, relative), name));
    }
    const auto any = [](const FolderEntry&) { return true; };
    addEntries(found, homeFd.get(), home, JunkCatalogue::mailDownloadsFolder, junk::mailAttachments, any);
    addEntries(found, homeFd.get(), home, JunkCatalogue::logsFolder, junk::logs, any);
    addEntries(found, homeFd.get(), home, JunkCatalogue::downloadsFolder, junk::installers,
               [](const FolderEntry& e) { return JunkCatalogue::isInstaller(e.name); });
    // The Trash as the host's backend keeps it (the freedesktop.org one on Linux, ~/.Trash on a
    // Mac), when the home is the user's own; another home's .Trash folder as it stands.
    const auto& backend = quorv::host().trash;
    if (backend && home == trimmed(FS::home())) {
        for (const auto& item : backend->list()) {
            const std::string& named = item.originalPath ? *item.originalPath : item.location;
            found.add(junk::trash, makeItem(item.location, named.substr(named.rfind('/') + 1)));
        }
    } else {
        addEntries(found, homeFd.get(), home, JunkCatalogue::trashFolder, junk::trash, any);
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::cloud(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    Found found;
    for (const auto& rule : JunkCatalogue::cloudRules()) {
        for (auto& path : JunkCatalogue::expandCloudGlob(home, rule.glob)) {
            // Inside synced storage only the caches that are not synced themselves may go:
            // removing anything else locally would remove it from the cloud too.
            const std::string name = path.substr(path.rfind('/') + 1);
            if ((FS::isCloudSynced(path) || FS::isUbiquitous(path)) && FS::unsyncedCacheNames().count(name) == 0) continue;
            found.add(junk::cloudStorage, makeItem(std::move(path), std::string(rule.label)));
        }
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::developer(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    Found found;
    for (const auto& place : JunkCatalogue::developerPlaces()) {
        const auto st = statBelow(homeFd.get(), place.path);
        // A link would measure as nothing and be skipped anyway; its target is not ours to judge.
        if (!st || S_ISLNK(st->st_mode)) continue;
        std::string location = joined(home, place.path);
        if (FS::isCloudSynced(location)) continue;
        found.add(JunkCatalogue::developerCategory(place.kind),
                  makeItem(std::move(location), std::string(place.label), place.tickedByDefault));
    }
    for (const auto& platform : JunkCatalogue::deviceSupportPlatforms()) {
        std::string relative(JunkCatalogue::deviceSupportFolder);
        relative += '/';
        relative += platform.folder;
        const auto fd = FolderListing::openBelow(homeFd.get(), relative);
        if (!fd) continue;
        const std::string folder = joined(home, relative);
        for (const auto& entry : FolderListing::list(fd.get())) {
            if (!entry.isFolder()) continue;
            const std::string location = joined(folder, entry.name);
            if (FS::isCloudSynced(location)) continue;
            found.add(junk::xcode, makeItem(location, JunkCatalogue::deviceSupportLabel(platform, entry.name)));
        }
    }
    return found.categories();
}

std::vector<JunkCategory> JunkScanner::oldNodeModules(const std::string& homeLocation, double now, int days) {
    Found found;
    const double limit = static_cast<double>(days) * 86400.0;
    for (const auto& project : NodeModules::projects(trimmed(homeLocation))) {
        if (now - project.lastChange < limit) continue;
        for (const auto& modules : project.modules) {
            // "my-app · untouched since 2026-06-23": the folder holding node_modules (the project,
            // or a workspace inside it) and the day the project last changed.
            const std::string holder = modules.substr(0, modules.rfind('/'));
            std::string label = holder.substr(holder.rfind('/') + 1);
            label += JunkCatalogue::untouchedSince;
            label += dayText(project.lastChange);
            found.add(junk::oldNodeModules, makeItem(modules, std::move(label)));
        }
    }
    return found.categories();
}

void JunkScanner::measure(std::vector<JunkCategory>& categories) {
    std::vector<std::string> locations;
    for (const auto& category : categories) {
        for (const auto& item : category.items) locations.push_back(item.location);
    }
    const auto sizes = SizeWalker::walkMany(locations);
    std::size_t next = 0;
    for (auto& category : categories) {
        // A folder is the sum of what lies beneath it, its own blocks left out: an empty one is 0.
        for (auto& item : category.items) item.size = next < sizes.size() ? sizes[next++].beneath() : 0;
        if (isDeveloperCategory(category.name)) {
            std::erase_if(category.items, [](const FileItem& item) { return item.size <= 0; });
        }
    }
    std::erase_if(categories, [](const JunkCategory& category) { return category.items.empty(); });
}

std::vector<JunkCategory> JunkScanner::scan(const std::string& home, const Progress& progress) {
    if (!quorv::host().isMac()) return LinuxJunkScanner::scan(home, progress);
    const double now = quorv::host().now();
    const std::vector<std::function<std::vector<JunkCategory>()>> stages = {
        [&] { return browserData(home); },
        [&] { return libraryCaches(home); },
        [&] { return iosBackups(home); },
        [&] { return userFolders(home); },
        [&] { return cloud(home); },
        [&] { return developer(home); },
        [&] { return oldNodeModules(home, now, JunkCatalogue::nodeModulesDays); },
    };
    const int total = static_cast<int>(stages.size()) + 1;  // and the measuring
    int done = 0;
    auto report = [&] {
        ++done;
        if (progress) progress(done, total);
    };

    Found found;
    for (const auto& stage : stages) {
        // A stage that fails outright (out of memory) costs its own findings, not the scan's.
        try {
            found.add(stage());
        } catch (...) {
        }
        report();
    }
    auto categories = found.categories();
    try {
        measure(categories);
    } catch (...) {
        categories.clear();
    }
    report();
    return categories;
}

}  // namespace brimstell
