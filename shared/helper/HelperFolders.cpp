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

HelperFiles::HelperFiles(UniqueFd root, std::string rootPath, HelperRules rules, uid_t euid)
    : root_(std::move(root)), rootPath_(std::move(rootPath)), rules_(rules), euid_(euid) {}

std::optional<HelperFiles> HelperFiles::open(const std::string& rootPath, HelperRules rules, uid_t effectiveUser) {
    // The root itself comes from the helper's own command line and may be reached through links;
    // what counts is the path the system reports for it.
    UniqueFd root = LinkSafe::openFolder(rootPath, true);
    if (!root) return std::nullopt;
    auto physical = LinkSafe::pathOf(root.get());
    if (!physical || physical->empty() || physical->front() != '/') return std::nullopt;
    return HelperFiles(std::move(root), std::move(*physical), rules, effectiveUser);
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

namespace {

// The folder `name` in parent, made (0700, given to the home's owner) when missing and create is
// set; it must be a folder of the home's owner and never a link.
UniqueFd openOwnedLevel(int parent, const char* name, bool create, const struct stat& home, uid_t euid) {
    UniqueFd fd(LinkSafe::openFolderAt(parent, name));
    if (!fd) {
        if (errno != ENOENT || !create) return {};
        const bool made = ::mkdirat(parent, name, 0700) == 0;
        if (!made && errno != EEXIST) return {};
        fd = LinkSafe::openFolderAt(parent, name);
        if (!fd) return {};
        if (made && ::fchown(fd.get(), home.st_uid, home.st_gid) != 0 && euid == 0) return {};
    }
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != home.st_uid) return {};
    return fd;
}

}  // namespace

std::optional<HelperFiles::Trash> HelperFiles::openTrashOf(const std::string& home, bool create) const {
    if (rules_ == HelperRules::mac) {
        UniqueFd fd = openTrash(home, create);
        if (!fd) return std::nullopt;
        return Trash{std::move(fd), {}, home + "/.Trash"};
    }
    UniqueFd level = openFolder(home);
    struct stat homeStat {};
    if (!level || ::fstat(level.get(), &homeStat) != 0) return std::nullopt;
    for (const char* name : {".local", "share", "Trash"}) {
        level = openOwnedLevel(level.get(), name, create, homeStat, euid_);
        if (!level) return std::nullopt;
    }
    UniqueFd files = openOwnedLevel(level.get(), "files", create, homeStat, euid_);
    UniqueFd info = openOwnedLevel(level.get(), "info", create, homeStat, euid_);
    if (!files || !info) return std::nullopt;
    return Trash{std::move(files), std::move(info), home + std::string(freedesktopFiles)};
}

std::optional<std::string> HelperFiles::homeOfTrash(std::string_view folder) const {
    const std::string_view suffix = rules_ == HelperRules::mac ? std::string_view("/.Trash") : freedesktopFiles;
    if (folder.size() <= suffix.size() || !folder.ends_with(suffix)) return std::nullopt;
    return std::string(folder.substr(0, folder.size() - suffix.size()));
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

UniqueFd HelperFiles::ensureFolders(std::string_view path) const {
    if (UniqueFd fd = openFolder(path)) return fd;
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string_view::npos) return {};
    UniqueFd fd(::openat(root_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::size_t start = 1;
    while (fd && start < path.size()) {
        auto end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        const std::string part(path.substr(start, end - start));
        start = end + 1;
        if (part.empty()) continue;
        if (part == "." || part == "..") return {};
        const mode_t mode = start >= path.size() ? 0700 : 0755;
        if (::mkdirat(fd.get(), part.c_str(), mode) != 0 && errno != EEXIST) return {};
        fd = LinkSafe::openFolderAt(fd.get(), part.c_str());
    }
    return fd ? openFolder(path) : UniqueFd();
}

UniqueFd HelperFiles::logFolder(std::string_view folder) const {
    return rules_ == HelperRules::mac ? ensureFolder(folder) : ensureFolders(folder);
}

UniqueFd HelperFiles::openStash(std::string_view log) const {
    auto parts = helperpaths::split(log);
    if (!parts) return {};
    UniqueFd folder = logFolder(parts->folder);
    if (!folder) return {};
    (void)::mkdirat(folder.get(), "restore", 0700);
    UniqueFd stash = LinkSafe::openFolderAt(folder.get(), "restore");
    if (!stash) return {};
    struct stat st {};
    if (::fstat(stash.get(), &st) != 0 || st.st_uid != euid_ || (st.st_mode & 077) != 0) return {};
    return stash;
}

}  // namespace brimstell
