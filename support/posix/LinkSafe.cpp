#include "support/posix/LinkSafe.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "support/posix/Compat.hpp"

namespace quorv {

namespace {

// The next component of a relative path; false when none is left. Empty and "." parts are skipped.
bool nextPart(std::string_view& rest, std::string& part) {
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        part = std::string(rest.substr(0, slash));
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (!part.empty() && part != ".") return true;
    }
    return false;
}

std::string joined(const std::string& folder, std::string_view relative) {
    std::string out = folder;
    std::string part;
    while (nextPart(relative, part)) {
        if (out.empty() || out.back() != '/') out += '/';
        out += part;
    }
    return out;
}

bool plainAbsolute(const std::string& path) {
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) return false;
    if (path == "/") return true;
    if (path.back() == '/' || path.find("//") != std::string::npos) return false;
    return path.find("/./") == std::string::npos && path.find("/../") == std::string::npos &&
           !path.ends_with("/.") && !path.ends_with("/..");
}

// One step of a walk: the folder name in at, never a link. A link there fails with ELOOP
// whichever flags are asked for, anything else that isn't a folder with ENOTDIR.
UniqueFd step(int at, const std::string& name, int flags) {
    if constexpr (compat::hasPathOnly) {
        // The entry itself first (a link is opened as a link), judged by its descriptor.
        UniqueFd entry(::openat(at, name.c_str(), compat::pathOnly | O_NOFOLLOW | O_CLOEXEC));
        struct stat st{};
        if (!entry || ::fstat(entry.get(), &st) != 0) return {};
        if (!S_ISDIR(st.st_mode)) {
            errno = S_ISLNK(st.st_mode) ? ELOOP : ENOTDIR;
            return {};
        }
        if (flags == LinkSafe::baseFlags) return entry;
        return UniqueFd(::openat(entry.get(), ".", flags));
    }
    UniqueFd fd(::openat(at, name.c_str(), flags));
    struct stat st{};
    if (!fd && errno == ENOTDIR && ::fstatat(at, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) {
        errno = ELOOP;
    }
    return fd;
}

// Walks relative below baseFd: every folder on the way with baseFlags, the last with lastFlags.
// With makeMode set, a missing folder is made (one level) and opened without following a link.
UniqueFd walk(int baseFd, std::string_view relative, int lastFlags, std::optional<mode_t> makeMode) {
    if (relative.find('\0') != std::string_view::npos) return {};
    std::string part;
    std::string_view rest = relative;
    if (!nextPart(rest, part)) return UniqueFd(::openat(baseFd, ".", lastFlags));
    UniqueFd current;
    int at = baseFd;
    for (;;) {
        if (part == "..") return {};
        std::string next;
        const bool last = !nextPart(rest, next);
        const int flags = last ? lastFlags : LinkSafe::baseFlags;
        UniqueFd fd = step(at, part, flags);
        if (!fd && errno == ENOENT && makeMode) {
            if (::mkdirat(at, part.c_str(), *makeMode) != 0 && errno != EEXIST) return {};
            fd = step(at, part, flags);
        }
        if (!fd) return {};
        current = std::move(fd);
        at = current.get();
        if (last) return current;
        part = std::move(next);
    }
}

}  // namespace

UniqueFd LinkSafe::openFolder(const std::string& path, bool followLink) {
    return UniqueFd(::open(path.c_str(), followLink ? (folderFlags & ~O_NOFOLLOW) : folderFlags));
}

UniqueFd LinkSafe::openFolderAt(int dirFd, const std::string& name) {
    return UniqueFd(::openat(dirFd, name.c_str(), folderFlags));
}

UniqueFd LinkSafe::openBelow(int baseFd, std::string_view relative) {
    return walk(baseFd, relative, folderFlags, std::nullopt);
}

UniqueFd LinkSafe::openChecked(int baseFd, std::string_view relative, const std::string& expected) {
    UniqueFd fd = openBelow(baseFd, relative);
    if (!fd) return {};
    const auto actual = pathOf(fd.get());
    if (!actual || *actual != expected) {
        errno = ELOOP;
        return {};
    }
    return fd;
}

UniqueFd LinkSafe::openExact(const std::string& path) {
    if (!plainAbsolute(path)) {
        errno = EINVAL;
        return {};
    }
    UniqueFd root(::open("/", baseFlags));
    return root ? openChecked(root.get(), path.substr(1), path) : UniqueFd();
}

std::optional<std::string> LinkSafe::resolve(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    if (!real) return std::nullopt;
    return std::string(real.get());
}

UniqueFd LinkSafe::makeBelow(int baseFd, const std::string& basePath, std::string_view relative, mode_t mode) {
    UniqueFd fd = walk(baseFd, relative, folderFlags, mode);
    if (!fd) return {};
    const auto actual = pathOf(fd.get());
    if (!actual || *actual != joined(basePath, relative)) {
        errno = ELOOP;
        return {};
    }
    return fd;
}

UniqueFd LinkSafe::makeExact(const std::string& path, mode_t mode) {
    if (!plainAbsolute(path)) {
        errno = EINVAL;
        return {};
    }
    UniqueFd root(::open("/", baseFlags));
    return root ? makeBelow(root.get(), "/", path.substr(1), mode) : UniqueFd();
}

int LinkSafe::renameNoReplace(int fromDir, const std::string& from, int toDir, const std::string& to) {
    if (compat::renameNoReplace(fromDir, from.c_str(), toDir, to.c_str()) == 0) return 0;
    const int e = errno;
    if (e != EINVAL && e != ENOSYS && e != ENOTSUP) return e;
    // A file system without exclusive renames (some network ones): look, then rename.
    struct stat st{};
    if (::fstatat(toDir, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    return ::renameat(fromDir, from.c_str(), toDir, to.c_str()) == 0 ? 0 : errno;
}

std::optional<std::string> LinkSafe::pathOf(int fd) { return compat::descriptorPath(fd); }

bool LinkSafe::isInside(const std::string& path, const std::string& folder) {
    if (folder == "/") return !path.empty() && path[0] == '/';
    return path == folder ||
           (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/');
}

}  // namespace quorv
