#include "kit/files/LinkSafe.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>
#include <vector>

namespace brimstell {

using quorv::UniqueFd;

namespace {

#ifdef O_PATH
constexpr int pathOnly = O_PATH;
#else
constexpr int pathOnly = O_RDONLY;
#endif

int rawRenameNoReplace(int fromDir, const char* from, int toDir, const char* to) {
#ifdef __APPLE__
    return ::renameatx_np(fromDir, from, toDir, to, RENAME_EXCL);
#else
    return ::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE);
#endif
}

// An open folder being emptied: its stream, and whether anything in it could not be removed.
struct Frame {
    DIR* dir = nullptr;
    std::string name;  // its name inside the frame below it
    bool failed = false;
};

void closeAll(std::vector<Frame>& stack) {
    for (auto& f : stack) ::closedir(f.dir);
    stack.clear();
}

// Opens the folder name inside dirFd for emptying: it must still be the folder that st describes
// (no link swapped in), and we need read, write and search permission on it.
DIR* openForEmptying(int dirFd, const std::string& name, const struct stat& st) {
    const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int fd = ::openat(dirFd, name.c_str(), flags);
    if (fd < 0 && errno == EACCES) {
        // Our own read-only folder (module caches make them 0555 or 0444): give it back its owner's
        // permissions. fchmodat with AT_SYMLINK_NOFOLLOW never touches a link's target.
        if (::fchmodat(dirFd, name.c_str(), (st.st_mode & 07777) | S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
            fd = ::openat(dirFd, name.c_str(), flags);
        }
    }
    if (fd < 0) return nullptr;
    struct stat now{};
    if (::fstat(fd, &now) != 0 || now.st_dev != st.st_dev || now.st_ino != st.st_ino) {
        ::close(fd);
        return nullptr;
    }
    if ((now.st_mode & S_IRWXU) != S_IRWXU) ::fchmod(fd, (now.st_mode & 07777) | S_IRWXU);
    DIR* dir = ::fdopendir(fd);
    if (!dir) ::close(fd);
    return dir;
}

bool gone(int dirFd, const std::string& name) {
    struct stat st{};
    return ::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

}  // namespace

UniqueFd LinkSafe::openFolder(const std::string& path, bool followLink) {
    const int flags = pathOnly | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW);
    return UniqueFd(::open(path.c_str(), flags));
}

UniqueFd LinkSafe::openFolderAt(int dirFd, const std::string& name) {
    return UniqueFd(::openat(dirFd, name.c_str(), pathOnly | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

int LinkSafe::renameNoReplace(int fromDir, const std::string& from, int toDir, const std::string& to) {
    if (rawRenameNoReplace(fromDir, from.c_str(), toDir, to.c_str()) == 0) return 0;
    const int e = errno;
    if (e != EINVAL && e != ENOSYS && e != ENOTSUP) return e;
    // A file system without exclusive renames (some network ones): look, then rename.
    struct stat st{};
    if (::fstatat(toDir, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    return ::renameat(fromDir, from.c_str(), toDir, to.c_str()) == 0 ? 0 : errno;
}

std::optional<std::string> LinkSafe::pathOf(int fd) {
#ifdef __APPLE__
    char buf[PATH_MAX];
    if (::fcntl(fd, F_GETPATH, buf) != 0) return std::nullopt;
    return std::string(buf);
#else
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    std::vector<char> buf(4096);
    for (;;) {
        const ssize_t n = ::readlink(link, buf.data(), buf.size());
        if (n < 0) return std::nullopt;
        if (static_cast<std::size_t>(n) < buf.size()) {
            std::string path(buf.data(), static_cast<std::size_t>(n));
            // Not a path the kernel can name (a folder that was removed, another namespace).
            if (path.empty() || path[0] != '/') return std::nullopt;
            return path;
        }
        if (buf.size() >= (1u << 20)) return std::nullopt;
        buf.resize(buf.size() * 2);
    }
#endif
}

bool LinkSafe::removeTree(int dirFd, const std::string& name, dev_t device) {
    struct stat st{};
    if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (!S_ISDIR(st.st_mode)) return ::unlinkat(dirFd, name.c_str(), 0) == 0 || errno == ENOENT;
    if (st.st_dev != device) return false;

    // Depth first with an explicit stack, so a deep tree can't overflow the call stack; each level
    // holds one descriptor, so a tree deeper than the descriptor limit is left partly in place.
    std::vector<Frame> stack;
    DIR* top = openForEmptying(dirFd, name, st);
    if (!top) return false;
    stack.push_back({top, name, false});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        const int fd = ::dirfd(frame.dir);
        errno = 0;
        const dirent* entry = ::readdir(frame.dir);
        if (entry) {
            const std::string_view entryName(entry->d_name);
            if (entryName == "." || entryName == "..") continue;
            const std::string child(entryName);
            struct stat cst{};
            if (::fstatat(fd, child.c_str(), &cst, AT_SYMLINK_NOFOLLOW) != 0) {
                if (errno != ENOENT) frame.failed = true;
                continue;
            }
            if (!S_ISDIR(cst.st_mode)) {
                if (::unlinkat(fd, child.c_str(), 0) != 0 && errno != ENOENT) frame.failed = true;
                continue;
            }
            DIR* sub = cst.st_dev == device ? openForEmptying(fd, child, cst) : nullptr;
            if (!sub) {
                frame.failed = true;
                continue;
            }
            stack.push_back({sub, child, false});
            continue;
        }
        // The folder is read to its end (or can't be read further): remove it from its parent.
        const bool failed = frame.failed || errno != 0;
        const std::string done = frame.name;
        ::closedir(frame.dir);
        stack.pop_back();
        const int parentFd = stack.empty() ? dirFd : ::dirfd(stack.back().dir);
        if (failed || (::unlinkat(parentFd, done.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)) {
            if (stack.empty()) break;
            stack.back().failed = true;
        }
    }
    closeAll(stack);
    return gone(dirFd, name);
}

bool LinkSafe::isInside(const std::string& path, const std::string& folder) {
    if (folder == "/") return !path.empty() && path[0] == '/';
    return path == folder ||
           (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/');
}

}  // namespace brimstell
