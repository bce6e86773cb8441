// What the helper may touch on a Linux machine. Unlike a Mac, where three components and a few
// refused prefixes are enough, a Linux root is refused by default: only the places listed below as
// allowed are ever opened for a move, and everything else (system software, configuration, boot
// files, /root, devices, /proc, /sys, /run, /opt, /srv, /mnt, /media, /snap, other disks mounted
// anywhere, and any top folder we don't know) stays untouched.
//
// The rows are read in order and the first that matches decides. A row either matches the path
// itself or (beneath) the path or any folder on its way. "*" stays within one component except
// in rows marked anyDepth. A refusal matches in any letter case, so a case-insensitive mount can't
// slip a system folder past it; an allowance matches only the exact case. In the rows of homes,
// "~" stands for the home folder: the caller's own (whatever its path) or another account's
// "/home/<name>".

#include <fnmatch.h>

#include <array>
#include <string>
#include <string_view>

#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"

namespace brimstell {
namespace {

enum class Where { system, anyHome, ownHome, otherHome };
enum class Match { is, beneath, anyDepth };
enum class Verdict { refuse, allow };

struct Row {
    Where where;
    Match match;
    Verdict verdict;
    std::string_view pattern;
};

using enum Where;
using enum Match;
using enum Verdict;

constexpr std::array linuxRows = {
    // /usr/local stays open, as on a Mac; the rest of /usr is system software.
    Row{system, beneath, allow, "/usr/local/?*"},
    // Temporary files, except the sockets of the display and the session and the private
    // temporary folders that systemd and snapd hand to services.
    Row{system, beneath, refuse, "/tmp/.*-unix"},
    Row{system, beneath, refuse, "/tmp/systemd-private-*"},
    Row{system, beneath, refuse, "/tmp/snap-private-tmp"},
    Row{system, beneath, allow, "/tmp/?*"},
    Row{system, beneath, refuse, "/var/tmp/systemd-private-*"},
    Row{system, beneath, allow, "/var/tmp/?*"},
    // /var only where junk lives: logs that logrotate has set aside (numbered or compressed, at the
    // top of /var/log or one folder down, never the journal), crash reports, core dumps, and the
    // packages apt, dnf and pacman downloaded and keep only to install them again.
    Row{system, is, allow, "/var/log/*.[0-9]"},
    Row{system, is, allow, "/var/log/*/*.[0-9]"},
    Row{system, is, allow, "/var/log/*.old"},
    Row{system, is, allow, "/var/log/*/*.old"},
    Row{system, is, allow, "/var/log/*.gz"},
    Row{system, is, allow, "/var/log/*/*.gz"},
    Row{system, is, allow, "/var/log/*.xz"},
    Row{system, is, allow, "/var/log/*/*.xz"},
    Row{system, is, allow, "/var/log/*.bz2"},
    Row{system, is, allow, "/var/log/*/*.bz2"},
    Row{system, is, allow, "/var/log/*.zst"},
    Row{system, is, allow, "/var/log/*/*.zst"},
    Row{system, beneath, allow, "/var/crash/?*"},
    Row{system, beneath, allow, "/var/lib/systemd/coredump/?*"},
    Row{system, is, allow, "/var/cache/apt/archives/*.deb"},
    Row{system, is, allow, "/var/cache/dnf/*/packages/*.rpm"},
    Row{system, is, allow, "/var/cache/pacman/pkg/*.pkg.tar*"},
    // Every other top folder of the system, /home itself included, is refused by the default at
    // the end; these are named so that no home can ever lie in them.
    Row{system, beneath, refuse, "/root"},
    Row{system, beneath, refuse, "/etc"},
    Row{system, beneath, refuse, "/boot"},
    Row{system, beneath, refuse, "/efi"},
    Row{system, beneath, refuse, "/dev"},
    Row{system, beneath, refuse, "/proc"},
    Row{system, beneath, refuse, "/sys"},
    Row{system, beneath, refuse, "/run"},
    Row{system, beneath, refuse, "/var"},
    Row{system, beneath, refuse, "/usr"},
    Row{system, beneath, refuse, "/bin"},
    Row{system, beneath, refuse, "/sbin"},
    Row{system, beneath, refuse, "/lib*"},
    Row{system, beneath, refuse, "/opt"},
    Row{system, beneath, refuse, "/srv"},
    Row{system, beneath, refuse, "/mnt"},
    Row{system, beneath, refuse, "/media"},
    Row{system, beneath, refuse, "/snap"},
    // Folders a cloud client syncs, in any home and at any depth (as on a Mac), apart from the
    // clients' own caches, which are not synced.
    Row{anyHome, anyDepth, allow, "~*/.dropbox.cache"},
    Row{anyHome, anyDepth, allow, "~*/.debris"},
    Row{anyHome, anyDepth, refuse, "~*/dropbox*"},
    Row{anyHome, anyDepth, refuse, "~*/onedrive*"},
    Row{anyHome, anyDepth, refuse, "~*/google drive*"},
    Row{anyHome, anyDepth, refuse, "~*/mega*"},
    Row{anyHome, anyDepth, refuse, "~*/pcloud drive*"},
    Row{anyHome, anyDepth, refuse, "~*/box"},
    Row{anyHome, anyDepth, refuse, "~*/box/*"},
    Row{anyHome, anyDepth, refuse, "~*/box sync*"},
    Row{anyHome, anyDepth, refuse, "~*/sync"},
    Row{anyHome, anyDepth, refuse, "~*/sync/*"},
    // The caller's own home as on a Mac: anything inside it, never the home itself.
    Row{ownHome, beneath, allow, "~/?*"},
    // Another account's home: only what the junk rules clean there, the contents of its caches.
    Row{otherHome, beneath, allow, "~/.cache/?*"},
    Row{otherHome, beneath, allow, "~/.thumbnails/?*"},
};

bool matches(const Row& row, const std::string& path) {
    const int flags = (row.match == anyDepth ? 0 : FNM_PATHNAME) | (row.verdict == refuse ? FNM_CASEFOLD : 0);
    const std::string pattern(row.pattern);
    if (::fnmatch(pattern.c_str(), path.c_str(), flags) == 0) return true;
    if (row.match != beneath) return false;
    for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        if (::fnmatch(pattern.c_str(), path.substr(0, slash).c_str(), flags) == 0) return true;
    }
    return false;
}

bool oddPath(std::string_view path) {
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string_view::npos) return true;
    for (auto pattern : {"*//*", "*/../*", "*/..", "*/./*", "*/."}) {
        if (helperpaths::globMatch(pattern, path)) return true;
    }
    return false;
}

// The part of a path inside a home as "~/…" ("~" for the home itself), and whether that home is
// the caller's; nullopt outside any home.
std::optional<std::pair<std::string, bool>> inHome(std::string_view path, std::string_view callerHome) {
    auto relative = [&](std::string_view home) -> std::optional<std::string> {
        if (path == home) return std::string("~");
        if (path.size() > home.size() && path.starts_with(home) && path[home.size()] == '/') {
            return "~" + std::string(path.substr(home.size()));
        }
        return std::nullopt;
    };
    // An odd caller's home ("/", "/home", "/home/ann/", one with "." parts) opens nothing.
    const bool plainHome = !oddPath(callerHome) && callerHome.back() != '/' && callerHome.find('/', 1) != std::string_view::npos;
    if (plainHome) {
        if (auto own = relative(callerHome)) return std::pair{*own, true};
    }
    constexpr std::string_view homes = "/home/";
    if (!path.starts_with(homes)) return std::nullopt;
    const auto end = path.find('/', homes.size());
    if (end == homes.size()) return std::nullopt;
    if (auto other = relative(path.substr(0, end))) return std::pair{*other, false};
    return std::nullopt;
}

}  // namespace

bool HelperFiles::isProtectedOnLinux(std::string_view original, std::string_view callerHome) {
    if (oddPath(original)) return true;
    const std::string path(original);
    for (const Row& row : linuxRows) {
        if (row.where == system && matches(row, path)) return row.verdict == refuse;
    }
    const auto home = inHome(original, callerHome);
    if (!home) return true;
    const auto& [relative, own] = *home;
    for (const Row& row : linuxRows) {
        const bool applies = row.where == anyHome || row.where == (own ? ownHome : otherHome);
        if (applies && matches(row, relative)) return row.verdict == refuse;
    }
    return true;
}

}  // namespace brimstell
