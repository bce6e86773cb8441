#pragma once
// File-system utilities every engine uses.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/files/FileItem.hpp"
#include "kit/files/MovedItem.hpp"
#include "kit/files/VolumeStats.hpp"

namespace brimstell {

// A mounted volume besides the start-up one.
struct ExternalVolume {
    std::string location;  // its mount folder
    std::string name;      // what to call it: the folder's name

    bool operator==(const ExternalVolume&) const = default;
};

struct FS {
    // The current user's home folder.
    static std::string home();
    // The figures of the volume that holds location (the start-up volume: host().path("/")).
    static VolumeStats volumeStats(const std::string& location);

    // Allocated bytes at path, a final symbolic link not followed: 0 when nothing is there, a
    // file's own allocated size, a folder's whole contents by SizeWalker (one file system, each
    // inode once, the folder's own blocks included).
    static std::int64_t size(const std::string& path);
    // The allocated size of the one item at path (a folder's own entry, not its contents), or its
    // logical length where the file system reports no blocks; 0 when nothing is there.
    static std::int64_t fileSize(const std::string& path);

    // ---- Cloud storage ----

    // The home's two folders of synced cloud storage: Library/CloudStorage and
    // Library/Mobile Documents, as locations.
    static std::vector<std::string> cloudRoots();
    // Cache folders that live inside synced folders without being synced themselves.
    static const std::set<std::string>& unsyncedCacheNames();
    // True for a path inside (or equal to) one of the home's cloud roots, or inside another
    // account's: a system path /Users/<name>/Library/CloudStorage/… or …/Mobile Documents/….
    // A sandbox location is turned back into its system path for the second test.
    static bool isCloudSynced(const std::string& path);
    // The platform's is-ubiquitous-item property (an iCloud item); always false off macOS.
    static bool isUbiquitous(const std::string& path);

    // The 14 system paths that a walk of the whole disk never enters (map them with host().path).
    static const std::vector<std::string>& wholeDiskSkips();

    // ---- The mover ----

    // Moves items of the user's own account to the Trash (host().trash), concurrently, and records
    // what moved in the cleaning history under source, then posts FileEvents::sweepDidClean.
    // - What MoverGuard::refusal refuses (an empty, relative or dotted path, Brimstell's own
    //   state, the home's older sync folders, and as root what the helper protects) fails with its
    //   sentence. A path is moved and recorded without doubled or trailing slashes.
    // - A path whose ancestor is also listed is left out, so nothing moves twice (exact
    //   duplicates count once as well).
    // - A cloud-synced or ubiquitous item is refused (failed, untouched) unless its own name is
    //   one of unsyncedCacheNames().
    // - An item's size is sizes[path] when given, else FS::size(path), taken before the move.
    // Failures never stop the others and never throw: they come back in failed, with reasons.
    static TrashResult trash(const std::vector<std::string>& paths, const std::map<std::string, std::int64_t>& sizes = {},
                             const std::optional<std::string>& source = std::nullopt);
    // For each path, the index of the listed path it moves with: its own, the first listing of
    // the same path (doubled or trailing slashes aside), or its outermost listed ancestor. Only
    // paths that are their own holder move; the others share that one's fate.
    static std::vector<std::size_t> holdersOf(const std::vector<std::string>& paths);
    // The same over scanners' items, with their known sizes: one call of the mover, so one clean
    // is one session of the history. Of items listed twice, the first one's size counts.
    static TrashResult trash(const std::vector<FileItem>& items, const std::optional<std::string>& source = std::nullopt);

    // ---- Access and volumes ----

    // Whether the process may read protected user data. On a Mac (or a sandbox one), the
    // probe is reading the folder Library/Safari of the home. Linux has no such permission: true.
    static bool hasFullDiskAccess();
    // Opens the privacy settings page for Full Disk Access (/usr/bin/open with its URL, through
    // the host). False where there is no such page, or the opening failed.
    static bool openFullDiskAccessSettings();
    static constexpr const char* fullDiskAccessURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";

    // The volumes mounted under /Volumes (folders, not links, not hidden), by name. On Linux
    // outside a sandbox, also the mount points in /media/<user> and /run/media/<user>.
    static std::vector<ExternalVolume> externalVolumes();
};

}  // namespace brimstell
