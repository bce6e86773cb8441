// Opening the helper's folders and files without ever following a link, under the root folder.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

using quorv::LinkSafe;
using quorv::UniqueFd;

HelperFiles::HelperFiles(UniqueFd root, std::string rootPath, uid_t euid)
    : root_(std::move(root)), rootPath_(std::move(rootPath)), euid_(euid) {}

std::optional<HelperFiles> HelperFiles::open(const std::string& rootPath, uid_t effectiveUser) {
    // The root itself comes from the helper's own command line and may be reached through links;
    // what counts is the path the system reports for it.
    UniqueFd root = LinkSafe::openFolder(rootPath, true);
    if (!root) return std::nullopt;
    auto physical = LinkSafe::pathOf(root.get());
    if (!physical || physical->empty() || physical->front() != '/') return std::nullopt;
    return HelperFiles(std::move(root), std::move(*physical), effectiveUser);
}

std::string HelperFiles::systemPath(std::string_view path) const {
    if (rootPath_ == "/") return std::string(path);
    if (path == "/") return rootPath_;
    return rootPath_ + std::string(path);
}

UniqueFd HelperFiles::openFolder(std::string_view path) const {
    if (path.empty() || path.front() != '/') return {};
    // The folder reached must be exactly the one asked for: this refuses firmlinks, wrong letter
    // case and doubled slashes, which a walk alone lets through.
    return LinkSafe::openChecked(root_.get(), path.substr(1), systemPath(path));
}

UniqueFd HelperFiles::openTrash(const std::string& home, bool create) const {
    UniqueFd homeFd = openFolder(home);
    if (!homeFd) return {};
    struct stat homeStat {};
    if (::fstat(homeFd.get(), &homeStat) != 0) return {};
    UniqueFd trashFd = LinkSafe::openFolderAt(homeFd.get(), ".Trash");
    if (!trashFd) {
        if (errno != ENOENT || !create) return {};
        const bool made = ::mkdirat(homeFd.get(), ".Trash", 0700) == 0;
        if (!made && errno != EEXIST) return {};
        trashFd = LinkSafe::openFolderAt(homeFd.get(), ".Trash");
        if (!trashFd) return {};
        // Only root can give the new Trash to the home's owner; anyone else made it as themselves.
        if (made && ::fchown(trashFd.get(), homeStat.st_uid, homeStat.st_gid) != 0 && euid_ == 0) return {};
    }
    struct stat trashStat {};
    if (::fstat(trashFd.get(), &trashStat) != 0 || trashStat.st_uid != homeStat.st_uid) return {};
    return trashFd;
}

UniqueFd HelperFiles::openRecord(std::string_view path, int flags) const {
    auto parts = helperpaths::split(path);
    if (!parts) return {};
    UniqueFd folder = openFolder(parts->folder);
    if (!folder) return {};
    // Non-blocking for the open only, so a FIFO planted at the path can't stall the helper.
    UniqueFd fd(::openat(folder.get(), parts->name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
    if (!fd) return {};
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
    if ((flags & O_NONBLOCK) == 0) {
        const int current = ::fcntl(fd.get(), F_GETFL);
        if (current == -1 || ::fcntl(fd.get(), F_SETFL, current & ~O_NONBLOCK) == -1) return {};
    }
    return fd;
}

UniqueFd HelperFiles::ensureFolder(std::string_view path) const {
    if (UniqueFd fd = openFolder(path)) return fd;
    auto parts = helperpaths::split(path);
    if (!parts) return {};
    UniqueFd parent = openFolder(parts->folder);
    if (!parent) return {};
    if (::mkdirat(parent.get(), parts->name.c_str(), 0700) != 0 && errno != EEXIST) return {};
    return openFolder(path);
}

UniqueFd HelperFiles::openStash(std::string_view log) const {
    auto parts = helperpaths::split(log);
    if (!parts) return {};
    UniqueFd folder = ensureFolder(parts->folder);
    if (!folder) return {};
    (void)::mkdirat(folder.get(), "restore", 0700);
    UniqueFd stash = LinkSafe::openFolderAt(folder.get(), "restore");
    if (!stash) return {};
    struct stat st {};
    if (::fstat(stash.get(), &st) != 0 || st.st_uid != euid_ || (st.st_mode & 077) != 0) return {};
    return stash;
}

}  // namespace brimstell
