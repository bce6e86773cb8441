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

namespace brimstell {
namespace {

namespace files = quorv::files;

// The helper's protected-path rules, applied to what root moves or puts back itself. This is the
// Mac table; a platform's own table replaces the call here once it exists.
bool helperRulesProtect(const std::string& systemPath) { return HelperFiles::isProtected(systemPath); }

std::string lowered(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

// Mac volumes ignore case by default: compare as they would.
std::string comparable(const std::string& path) { return quorv::host().isMac() ? lowered(path) : path; }

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
std::vector<std::string> spellings(const std::string& path, bool followLast = false) {
    std::vector<std::string> out{comparable(path)};
    char buf[PATH_MAX];
    const bool whole = followLast && ::realpath(path.c_str(), buf) != nullptr;
    const std::string resolved = comparable(whole ? std::string(buf) : resolvedFolders(path));
    if (resolved != out.front()) out.push_back(resolved);
    return out;
}

bool touchesOwnState(const std::string& path) {
    const auto mine = spellings(path);
    for (const auto& own : MoverGuard::ownState()) {
        for (const auto& o : spellings(own, true)) {
            for (const auto& p : mine) {
                if (sameOrInside(p, o) || sameOrInside(o, p)) return true;
            }
        }
    }
    return false;
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

std::optional<std::string> rootRefusal(const std::string& path) {
    const auto& h = quorv::host();
    if (h.uid != 0) return std::nullopt;
    for (const auto& p : {path, resolvedFolders(path)}) {
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
    const std::string movedLog = h.path(HelperFiles::movedLog);
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

bool MoverGuard::inLegacySyncFolder(const std::string& path) {
    static constexpr std::string_view folders[] = {
        "dropbox*", "onedrive*", "google drive*", "mega*", "pcloud drive*", "box", "box/*", "box sync*", "sync", "sync/*",
    };
    const auto& h = quorv::host();
    for (const auto& home : spellings(tidy(h.home))) {
        for (const auto& p : spellings(path)) {
            const std::string lowHome = lowered(home), lowPath = lowered(p);
            if (lowHome.empty() || lowHome == "/" || !sameOrInside(lowPath, lowHome) || lowPath == lowHome) continue;
            const std::string relative = lowPath.substr(lowHome.size() + 1);
            for (auto pattern : folders) {
                if (helperpaths::globMatch(pattern, relative)) return true;
            }
        }
    }
    return false;
}

std::optional<std::string> MoverGuard::refusal(const std::string& given) {
    if (auto why = formRefusal(given)) return why;
    const std::string path = tidy(given);
    if (touchesOwnState(path)) return ownRecords;
    if (inLegacySyncFolder(path) && FS::unsyncedCacheNames().count(files::nameOf(path)) == 0) return synced;
    return rootRefusal(path);
}

std::optional<std::string> MoverGuard::restoreRefusal(const std::string& given) {
    if (formRefusal(given)) return std::string("Its original place isn't a full path.");
    return rootRefusal(tidy(given));
}

}  // namespace brimstell
