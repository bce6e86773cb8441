// What the helper must never touch on a Mac: anything but a plain absolute path, system folders,
// and folders that a cloud client syncs (a deletion there would spread to the user's other
// machines). The Linux rules are a table of their own, in HelperLinuxPaths.cpp.

#include <array>
#include <string>
#include <string_view>

#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"

namespace brimstell {
namespace {

using helperpaths::globMatch;

// No doubled slash, no "." or ".." component anywhere.
constexpr std::array<std::string_view, 5> oddPaths = {"*//*", "*/../*", "*/..", "*/./*", "*/."};

constexpr std::array<std::string_view, 12> systemPrefixes = {
    "/system/",  "/bin/",          "/sbin/",   "/usr/",           "/private/var/db/",        "/private/var/vm/",
    "/var/",     "/etc/",          "/private/etc/", "/volumes/",  "/library/apple/",        "/library/caches/com.apple.",
};

constexpr std::array<std::string_view, 12> cloudFolders = {
    "/users/*/library/cloudstorage*", "/users/*/library/mobile documents*",
    "/users/*/dropbox*",              "/users/*/onedrive*",
    "/users/*/mega*",                 "/users/*/google drive*",
    "/users/*/pcloud drive*",         "/users/*/box",
    "/users/*/box/*",                 "/users/*/box sync*",
    "/users/*/sync",                  "/users/*/sync/*",
};

std::string lowered(std::string_view path) {
    std::string out(path);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

}  // namespace

bool HelperFiles::isInSyncedFolder(std::string_view systemPath) {
    const std::string path = lowered(systemPath);
    for (auto pattern : cloudFolders) {
        if (globMatch(pattern, path)) return true;
    }
    return false;
}

bool HelperFiles::isProtected(std::string_view original) {
    const std::string path = lowered(original);
    if (path.empty() || path.front() != '/') return true;
    for (auto pattern : oddPaths) {
        if (globMatch(pattern, path)) return true;
    }
    if (path.starts_with("/usr/local/")) return false;
    for (auto prefix : systemPrefixes) {
        if (path.starts_with(prefix)) return true;
    }
    // Cloud clients' own caches are not synced and may be cleaned.
    if (path.ends_with("/.dropbox.cache") || path.ends_with("/.debris")) return false;
    if (isInSyncedFolder(path)) return true;
    // An application bundle directly in /Applications.
    if (globMatch("/applications/?*.app", path) && !globMatch("/applications/*/*", path)) return false;
    // At least three components: /Users/ann, /Library/Caches and the like are never touched.
    return !globMatch("*/*/*", std::string_view(path).substr(1));
}

bool HelperFiles::isProtected(std::string_view path, HelperRules rules, std::string_view callerHome) {
    return rules == HelperRules::mac ? isProtected(path) : isProtectedOnLinux(path, callerHome);
}

}  // namespace brimstell
