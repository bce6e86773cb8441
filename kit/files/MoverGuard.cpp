#include "kit/files/MoverGuard.hpp"

#include <climits>
#include <cstdlib>

#include "kit/files/FS.hpp"
#include "kit/files/History.hpp"
#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"
#include "shared/widget/WidgetSnapshot.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {
namespace {

namespace files = quorv::files;
using quorv::LinkSafe;

// The helper's protected-path rules of this platform, applied to what root moves or puts back itself.
bool helperRulesProtect(const std::string& systemPath) {
    const auto& h = quorv::host();
    if (h.isMac()) return HelperFiles::isProtected(systemPath);
    const std::string home = h.systemPath(h.home).value_or(std::string());
    // Root's own home (/root, or one under /home) is its own to clean, as any account's is; the
    // older sync folders in it are refused before this.
    const bool ownHome = home == "/root" || (home.starts_with("/home/") && home.size() > 6);
    if (ownHome && LinkSafe::isInside(systemPath, home) && systemPath != home) return false;
    return HelperFiles::isProtected(systemPath, HelperRules::linux, home);
}

std::string lowered(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

// Mac volumes ignore case by default: compare as they would.
std::string comparable(const std::string& path, bool mac) { return mac ? lowered(path) : path; }

bool sameOrInside(const std::string& path, const std::string& folder) {
    if (folder == "/") return true;
    return path == folder ||
           (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/');
}

// The path with the links of its existing folders resolved; the last component stays as it is,
// since the mover moves a link, not what it points to. The path itself when nothing resolves.
std::string resolvedFolders(const std::string& path) {
    std::string folder = files::parentOf(path);
    std::string rest = "/" + files::nameOf(path);
    while (true) {
        char buf[PATH_MAX];
        if (::realpath(folder.c_str(), buf) != nullptr) {
            const std::string real(buf);
            return (real == "/" ? "" : real) + rest;
        }
        if (folder == "/" || folder.empty()) return path;
        rest = "/" + files::nameOf(folder) + rest;
        folder = files::parentOf(folder);
    }
}

// Both spellings of a path worth comparing: as written, and with its folders' links resolved
// (with its own last link too, for a place of Brimstell's own: what it leads to is what is kept).
std::vector<std::string> spellings(const std::string& path, bool mac, bool followLast = false) {
    std::vector<std::string> out{comparable(path, mac)};
    char buf[PATH_MAX];
    const bool whole = followLast && ::realpath(path.c_str(), buf) != nullptr;
    const std::string resolved = comparable(whole ? std::string(buf) : resolvedFolders(path), mac);
    if (resolved != out.front()) out.push_back(resolved);
    return out;
}

std::optional<std::string> formRefusal(const std::string& path) {
    if (path.empty()) return MoverGuard::emptyPath;
    if (path.front() != '/') return MoverGuard::relativePath;
    const std::string tidied = MoverGuard::tidy(path);
    if (helperpaths::globMatch("*/./*", tidied + "/") || helperpaths::globMatch("*/../*", tidied + "/")) {
        return MoverGuard::dottedPath;
    }
    return std::nullopt;
}

// The paths are the spellings of one path (as written first), in their original case.
std::optional<std::string> rootRefusal(const std::vector<std::string>& paths) {
    const auto& h = quorv::host();
    if (h.uid != 0) return std::nullopt;
    for (const auto& p : paths) {
        const std::string system = h.systemPath(p).value_or(p);
        if (!helperRulesProtect(system)) continue;
        // A synced item says so, as it would to anyone else.
        return HelperFiles::isInSyncedFolder(system) ? MoverGuard::synced : MoverGuard::protectedPath;
    }
    return std::nullopt;
}

}  // namespace

std::string MoverGuard::tidy(const std::string& path) {
    std::string out;
    out.reserve(path.size());
    for (char c : path) {
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    return files::trimTrailingSlashes(out);
}

std::vector<std::string> MoverGuard::ownState() {
    const auto& h = quorv::host();
    const std::string movedLog = h.path(h.isMac() ? HelperFiles::movedLog : HelperFiles::linuxMovedLog);
    return {
        files::parentOf(History::defaultFile()),
        h.settingsFile(),
        h.settingsFile() + ".lock",
        h.appSupport() + "/health-history.json",
        h.appSupport() + "/clean.lock",
        h.inHome("Library/Application Support/Brimstell/clean.lock"),
        h.groupContainer(WidgetSnapshot::group),
        movedLog,
        files::parentOf(movedLog) + "/restore",
    };
}

MoverGuard::MoverGuard() : mac_(quorv::host().isMac()) {
    for (const auto& own : ownState()) {
        for (auto& o : spellings(own, mac_, true)) own_.push_back(std::move(o));
    }
    for (const auto& home : spellings(tidy(quorv::host().home), false, true)) {
        if (home.empty() || home == "/") continue;
        homes_.push_back(lowered(home));
    }
}

bool MoverGuard::touchesOwnState(const std::vector<std::string>& paths) const {
    for (const auto& p : paths) {
        const std::string c = comparable(p, mac_);
        for (const auto& o : own_) {
            if (sameOrInside(c, o) || sameOrInside(o, c)) return true;
        }
    }
    return false;
}

bool MoverGuard::inLegacySyncFolder(const std::vector<std::string>& paths) const {
    static constexpr std::string_view folders[] = {
        "dropbox*", "onedrive*", "google drive*", "mega*", "pcloud drive*", "box", "box/*", "box sync*", "sync", "sync/*",
    };
    for (const auto& p : paths) {
        const std::string low = lowered(p);
        for (const auto& home : homes_) {
            if (low == home || !sameOrInside(low, home)) continue;
            const std::string relative = low.substr(home.size() + 1);
            for (auto pattern : folders) {
                if (helperpaths::globMatch(pattern, relative)) return true;
            }
        }
    }
    return false;
}

std::optional<std::string> MoverGuard::refusalOf(const std::string& given) const {
    if (auto why = formRefusal(given)) return why;
    const std::string path = tidy(given);
    std::vector<std::string> paths{path};
    if (std::string resolved = resolvedFolders(path); resolved != path) paths.push_back(std::move(resolved));
    if (touchesOwnState(paths)) return ownRecords;
    if (inLegacySyncFolder(paths) && FS::unsyncedCacheNames().count(files::nameOf(path)) == 0) return synced;
    return rootRefusal(paths);
}

std::optional<std::string> MoverGuard::restoreRefusal(const std::string& given) {
    if (formRefusal(given)) return std::string("Its original place isn't a full path.");
    const std::string path = tidy(given);
    return rootRefusal({path, resolvedFolders(path)});
}

}  // namespace brimstell
