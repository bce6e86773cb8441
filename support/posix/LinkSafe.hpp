#pragma once
// The one link-safe file layer: folders opened one component at a time from a base descriptor
// without following links and checked for where they ended up, renames that never replace, trees
// removed with a bounded number of descriptors, folders made one level at a time.
//
// Safety-critical file work goes through here, on descriptors, never on re-resolved paths.

#include <sys/stat.h>
#include <sys/types.h>

#include <fcntl.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/posix/Compat.hpp"
#include "support/posix/UniqueFd.hpp"

namespace quorv {

struct LinkSafe {
    static constexpr int pathOnly = compat::pathOnly;
    // A folder to list or to use as the base of *at calls; a final link is refused.
    static constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    // The same, for a folder that is only a base of *at calls (never listed).
    static constexpr int baseFlags = pathOnly | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

    // A folder by its path with folderFlags, a final link followed only when followLink is set.
    // For folders whose path is trusted (the caller's own); everything else uses openExact.
    static UniqueFd openFolder(const std::string& path, bool followLink);
    // The folder `name` directly in dirFd with folderFlags.
    static UniqueFd openFolderAt(int dirFd, const std::string& name);

    // The folder at `relative` below baseFd, opened one component at a time with folderFlags.
    // Empty and "." components are skipped; ".." is refused. An empty path opens baseFd again.
    static UniqueFd openBelow(int baseFd, std::string_view relative);
    // openBelow, then the check: the path the kernel reports for the folder reached must equal
    // expected. This refuses links, case-folded names and anything swapped in during the walk.
    static UniqueFd openChecked(int baseFd, std::string_view relative, const std::string& expected);
    // An absolute path opened from "/" with openChecked; the path must be in its plain form (no
    // doubled or trailing "/", no "." or "..").
    static UniqueFd openExact(const std::string& path);
    // The folder's real path: every link in it resolved once, as people may use links on purpose.
    // Whoever can change a folder on the path can change what this says: open the answer with
    // openExact, which refuses a link swapped in after it.
    static std::optional<std::string> resolve(const std::string& path);

    // openChecked for a folder below baseFd (real path basePath) that may not exist yet: missing
    // folders are made with mode, one level at a time, never following a link.
    static UniqueFd makeBelow(int baseFd, const std::string& basePath, std::string_view relative, mode_t mode);
    // makeBelow from "/" for an absolute path in plain form.
    static UniqueFd makeExact(const std::string& path, mode_t mode);

    // Renames fromDir/from to toDir/to unless something is there already (EEXIST then).
    // 0 on success, else the errno value. Where the file system can't rename exclusively the
    // target is checked first and a plain rename follows.
    static int renameNoReplace(int fromDir, const std::string& from, int toDir, const std::string& to);

    // The real path of an open descriptor, as the kernel has it; nullopt when it can't say.
    static std::optional<std::string> pathOf(int fd);

    // Deletes name inside dirFd for good: a file or link is unlinked, a folder emptied depth first
    // and removed. Holds a few descriptors whatever the depth; each folder's identity is checked
    // on the way down and again on the way back up, so a link or folder swapped in stops it. Never
    // follows a link, never enters a folder on another device than `device`, gives owner
    // permissions back to folders that lack them so they can be emptied. True when nothing is
    // left at name afterwards.
    static bool removeTree(int dirFd, const std::string& name, dev_t device);
    // The same for a folder that must still be the one `expected` describes (device and inode).
    static bool removeFolder(int dirFd, const std::string& name, const struct stat& expected, dev_t device);

    // True when path equals folder or lies beneath it (plain text comparison).
    static bool isInside(const std::string& path, const std::string& folder);
};

}  // namespace quorv
