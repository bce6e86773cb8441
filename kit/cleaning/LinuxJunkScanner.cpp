#include "kit/cleaning/LinuxJunkScanner.hpp"

#include <functional>
#include <optional>
#include <utility>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/cleaning/LinuxJunkCatalogue.hpp"
#include "kit/cleaning/ScanItems.hpp"
#include "kit/files/FS.hpp"
#include "support/host/Host.hpp"
#include "support/host/TrashBackend.hpp"

namespace brimstell {

namespace {

using scanitems::joined;
using scanitems::makeItem;
using scanitems::trimmed;

// The Linux categories in the list's order.
class Found : public scanitems::Found {
public:
    using scanitems::Found::add;
    std::vector<JunkCategory> categories() { return scanitems::Found::categories(LinuxJunkCatalogue::categories()); }
};

bool isOwnHome(const std::string& home) { return home == trimmed(FS::home()); }

// An XDG base folder: the variable when home is the user's own and the value is absolute (a
// relative one is ignored, as the base directory rules say), else home's fallback.
std::string xdgFolder(const std::string& homeLocation, const char* variable, std::string_view fallback) {
    const std::string home = trimmed(homeLocation);
    if (isOwnHome(home)) {
        const auto value = quorv::host().env(variable);
        if (value && !value->empty() && value->front() == '/') return trimmed(*value);
    }
    return joined(home, fallback);
}

// The entry at relative below the open folder, no link followed on the way or at the end.
std::optional<struct stat> statBelow(int folderFd, std::string_view relative) {
    const auto slash = relative.rfind('/');
    const auto parent = FolderListing::openBelow(folderFd, slash == std::string_view::npos ? "" : relative.substr(0, slash));
    if (!parent) return std::nullopt;
    return FolderListing::statAt(parent.get(), std::string(relative.substr(slash == std::string_view::npos ? 0 : slash + 1)));
}

// The folder at relative below base: base taken as given (the user's own setting may lead
// through a link), nothing below it followed.
quorv::UniqueFd openIn(const std::string& base, std::string_view relative) {
    const auto fd = FolderListing::open(base);
    return fd ? FolderListing::openBelow(fd.get(), relative) : quorv::UniqueFd();
}

// Each folder named in LinuxJunkCatalogue::configAppCaches and the log folder of one app.
void addConfigApp(Found& found, int configFd, const std::string& config, const ConfigApp& app) {
    const auto fd = FolderListing::openBelow(configFd, app.folder);
    if (!fd) return;
    const std::string folder = joined(config, app.folder);
    const std::string name(app.name);
    for (const auto cache : LinuxJunkCatalogue::configAppCaches()) {
        const auto st = FolderListing::statAt(fd.get(), std::string(cache));
        if (st && S_ISDIR(st->st_mode)) found.add(app.category, makeItem(joined(folder, cache), name + " · " + std::string(cache)));
    }
    const auto logs = FolderListing::statAt(fd.get(), std::string(LinuxJunkCatalogue::configAppLogs));
    if (logs && S_ISDIR(logs->st_mode)) {
        found.add(junk::logs, makeItem(joined(folder, LinuxJunkCatalogue::configAppLogs), name + " · Logs"));
    }
}

// <folder>/<app>/<cache> of every app of a sandbox rule: "Flatpak · org.gimp.GIMP". Only the
// cache folder goes; the app's data and settings beside it stay.
void addSandboxed(Found& found, int homeFd, const std::string& home, const SandboxRule& rule) {
    const auto fd = FolderListing::openBelow(homeFd, rule.folder);
    if (!fd) return;
    const std::string folder = joined(home, rule.folder);
    for (const auto& app : FolderListing::list(fd.get())) {
        if (!app.isFolder()) continue;
        const auto appFd = FolderListing::openBelow(fd.get(), app.name);
        if (!appFd || !FolderListing::openBelow(appFd.get(), rule.cache)) continue;
        found.add(junk::sandboxedApps, makeItem(joined(joined(folder, app.name), rule.cache),
                                                std::string(rule.word) + " · " + app.name));
    }
}

void addLogs(Found& found, int homeFd, const std::string& home) {
    for (const auto name : LinuxJunkCatalogue::homeLogFiles()) {
        const auto st = FolderListing::statAt(homeFd, std::string(name));
        if (st && S_ISREG(st->st_mode)) found.add(junk::logs, makeItem(joined(home, name), std::string(name)));
    }
    const std::string xorg = joined(LinuxJunkScanner::dataFolder(home), LinuxJunkCatalogue::xorgLogFolder);
    const auto fd = openIn(LinuxJunkScanner::dataFolder(home), LinuxJunkCatalogue::xorgLogFolder);
    if (!fd) return;
    for (const auto& entry : FolderListing::list(fd.get())) {
        if (!S_ISREG(entry.st.st_mode) || LinuxJunkCatalogue::isJournal(entry.name)) continue;
        if (entry.name.find(".log") == std::string::npos) continue;
        found.add(junk::logs, makeItem(joined(xorg, entry.name), entry.name));
    }
}

void addTrash(Found& found, const std::string& home) {
    // The user's own Trash as the backend keeps it (with the Trash folders of other disks);
    // another home's Trash folder as it stands.
    const auto& backend = quorv::host().trash;
    if (backend && isOwnHome(home)) {
        for (const auto& item : backend->list()) {
            const std::string& named = item.originalPath ? *item.originalPath : item.location;
            found.add(junk::trash, makeItem(item.location, named.substr(named.rfind('/') + 1)));
        }
        return;
    }
    const std::string files = joined(LinuxJunkScanner::dataFolder(home), LinuxJunkCatalogue::trashFilesFolder);
    const auto fd = openIn(LinuxJunkScanner::dataFolder(home), LinuxJunkCatalogue::trashFilesFolder);
    if (!fd) return;
    for (const auto& entry : FolderListing::list(fd.get())) found.add(junk::trash, makeItem(joined(files, entry.name), entry.name));
}

}  // namespace

std::string LinuxJunkScanner::cacheFolder(const std::string& home) { return xdgFolder(home, "XDG_CACHE_HOME", ".cache"); }
std::string LinuxJunkScanner::dataFolder(const std::string& home) { return xdgFolder(home, "XDG_DATA_HOME", ".local/share"); }

std::vector<JunkCategory> LinuxJunkScanner::caches(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    Found found;
    const std::string cache = cacheFolder(home);
    if (const auto fd = FolderListing::open(cache)) {
        for (const auto& entry : FolderListing::list(fd.get())) {
            // Folders only, as in a Mac's Library/Caches: a loose file here is a lock or a small
            // database some program holds open.
            if (!entry.isFolder() || LinuxJunkCatalogue::isDeveloperCacheEntry(entry.name)) continue;
            const auto* rule = LinuxJunkCatalogue::cacheEntry(entry.name);
            found.add(rule ? rule->category : junk::otherAppCaches,
                      makeItem(joined(cache, entry.name), rule ? std::string(rule->label) : entry.name));
        }
    }
    if (const auto homeFd = FolderListing::open(home)) {
        const auto st = FolderListing::statAt(homeFd.get(), ".thumbnails");
        if (st && S_ISDIR(st->st_mode)) found.add(junk::thumbnails, makeItem(joined(home, ".thumbnails"), "Thumbnails (older desktops)"));
    }
    return found.categories();
}

std::vector<JunkCategory> LinuxJunkScanner::appFolders(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    Found found;
    if (const auto configFd = FolderListing::openBelow(homeFd.get(), LinuxJunkCatalogue::configFolder)) {
        const std::string config = joined(home, LinuxJunkCatalogue::configFolder);
        for (const auto& app : LinuxJunkCatalogue::configApps()) addConfigApp(found, configFd.get(), config, app);
    }
    for (const auto& rule : LinuxJunkCatalogue::sandboxRules()) addSandboxed(found, homeFd.get(), home, rule);
    return found.categories();
}

std::vector<JunkCategory> LinuxJunkScanner::userFolders(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    const auto homeFd = FolderListing::open(home);
    if (!homeFd) return {};
    Found found;
    addLogs(found, homeFd.get(), home);
    // Downloads by its English name: the desktop's own name for it (user-dirs.dirs) may be
    // translated, and a folder of that name is then simply not found.
    if (const auto fd = FolderListing::openBelow(homeFd.get(), LinuxJunkCatalogue::downloadsFolder)) {
        const std::string folder = joined(home, LinuxJunkCatalogue::downloadsFolder);
        for (const auto& entry : FolderListing::list(fd.get())) {
            if (entry.isLink() || !LinuxJunkCatalogue::isInstaller(entry.name)) continue;
            found.add(junk::installers, makeItem(joined(folder, entry.name), entry.name));
        }
    }
    addTrash(found, home);
    return found.categories();
}

std::vector<JunkCategory> LinuxJunkScanner::developer(const std::string& homeLocation) {
    const std::string home = trimmed(homeLocation);
    Found found;
    for (const auto& place : LinuxJunkCatalogue::developerPlaces()) {
        const std::string base = place.base == LinuxBase::home    ? home
                                 : place.base == LinuxBase::cache ? cacheFolder(home)
                                                                  : dataFolder(home);
        const auto baseFd = FolderListing::open(base);
        const auto st = baseFd ? statBelow(baseFd.get(), place.path) : std::nullopt;
        if (!st || S_ISLNK(st->st_mode)) continue;
        std::string location = joined(base, place.path);
        if (FS::isCloudSynced(location)) continue;
        found.add(JunkCatalogue::developerCategory(place.kind),
                  makeItem(std::move(location), std::string(place.label), place.tickedByDefault));
    }
    return found.categories();
}

std::vector<JunkCategory> LinuxJunkScanner::scan(const std::string& home, const JunkScanner::Progress& progress) {
    const double now = quorv::host().now();
    const std::vector<std::function<std::vector<JunkCategory>()>> stages = {
        [&] { return caches(home); },
        [&] { return appFolders(home); },
        [&] { return userFolders(home); },
        [&] { return developer(home); },
        [&] { return JunkScanner::oldNodeModules(home, now, JunkCatalogue::nodeModulesDays); },
    };
    const int total = static_cast<int>(stages.size()) + 1;  // and the measuring
    int done = 0;
    Found found;
    for (const auto& stage : stages) {
        // A stage that fails outright (out of memory) costs its own findings, not the scan's.
        try {
            found.add(stage());
        } catch (...) {
        }
        if (progress) progress(++done, total);
    }
    auto categories = found.categories();
    try {
        JunkScanner::measure(categories);
    } catch (...) {
        categories.clear();
    }
    if (progress) progress(++done, total);
    return categories;
}

}  // namespace brimstell
