// Removing a folder tree by descriptors, depth first, without recursion and with a few
// descriptors whatever the depth.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "support/posix/LinkSafe.hpp"

namespace quorv {

namespace {

struct Level {
    dev_t device;
    ino_t inode;
    std::string name;  // in the folder above
};

bool same(const struct stat& st, dev_t device, ino_t inode) { return st.st_dev == device && st.st_ino == inode; }

// Opens the folder name in dirFd for emptying: it must still be the folder (device, inode) and we
// need read, write and search permission on it, which an owner can give back to its own folder
// (module caches make theirs 0555). fchmodat with AT_SYMLINK_NOFOLLOW never touches a link's target.
UniqueFd openForEmptying(int dirFd, const std::string& name, dev_t device, ino_t inode, mode_t mode) {
    UniqueFd fd(::openat(dirFd, name.c_str(), LinkSafe::folderFlags));
    if (!fd && errno == EACCES &&
        ::fchmodat(dirFd, name.c_str(), (mode & 07777) | S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
        fd.reset(::openat(dirFd, name.c_str(), LinkSafe::folderFlags));
    }
    struct stat now{};
    if (!fd) return {};
    if (::fstat(fd.get(), &now) != 0 || !same(now, device, inode)) {
        errno = ESTALE;  // another folder, or a link, stands there now
        return {};
    }
    if ((now.st_mode & S_IRWXU) != S_IRWXU) (void)::fchmod(fd.get(), (now.st_mode & 07777) | S_IRWXU);
    return fd;
}

enum class Pass { empty, removedSome, foundFolder, failed };

// One listing of the folder: removes every non-folder, stops at the first sub-folder.
Pass clearFiles(int dirFd, dev_t device, std::string& folder, struct stat& folderStat) {
    // A descriptor of its own so the listing starts at the beginning every time.
    UniqueFd listFd(::openat(dirFd, ".", LinkSafe::folderFlags));
    DIR* dir = listFd ? ::fdopendir(listFd.get()) : nullptr;
    if (!dir) return Pass::failed;
    listFd.release();
    Pass result = Pass::empty;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (entry == nullptr) {
            if (errno != 0) result = Pass::failed;
            break;
        }
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        struct stat st{};
        if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;  // gone while we looked
            result = Pass::failed;
            break;
        }
        if (S_ISDIR(st.st_mode)) {
            result = st.st_dev == device ? Pass::foundFolder : Pass::failed;  // never another device
            folder = name;
            folderStat = st;
            break;
        }
        if (::unlinkat(dirFd, name, 0) != 0 && errno != ENOENT) {
            result = Pass::failed;
            break;
        }
        result = Pass::removedSome;
    }
    ::closedir(dir);
    return result;
}

// Goes from the emptied folder `current` back up to its parent, checked against the trail.
UniqueFd upAndRemove(UniqueFd current, const Level& done, const Level& above) {
    UniqueFd parent(::openat(current.get(), "..", LinkSafe::folderFlags));
    struct stat parentStat{}, check{};
    if (!parent || ::fstat(parent.get(), &parentStat) != 0 || !same(parentStat, above.device, above.inode) ||
        ::fstatat(parent.get(), done.name.c_str(), &check, AT_SYMLINK_NOFOLLOW) != 0 ||
        !same(check, done.device, done.inode)) {
        return {};
    }
    current.reset();
    if (::unlinkat(parent.get(), done.name.c_str(), AT_REMOVEDIR) != 0) return {};
    return parent;
}

bool gone(int dirFd, const std::string& name) {
    struct stat st{};
    return ::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

}  // namespace

bool LinkSafe::removeFolder(int parentFd, const std::string& name, const struct stat& expected, dev_t device) {
    if (!S_ISDIR(expected.st_mode) || expected.st_dev != device) return false;
    UniqueFd current = openForEmptying(parentFd, name, expected.st_dev, expected.st_ino, expected.st_mode);
    if (!current) return false;
    // The folders from the top down to the current one; their descriptors are not kept, the way
    // back up is "..", checked against the identity recorded on the way down.
    std::vector<Level> trail{{expected.st_dev, expected.st_ino, name}};
    for (;;) {
        std::string sub;
        struct stat subStat{};
        Pass pass = clearFiles(current.get(), device, sub, subStat);
        // Removing while listing may hide entries from the listing: list again until one pass
        // finds nothing left.
        while (pass == Pass::removedSome) pass = clearFiles(current.get(), device, sub, subStat);
        if (pass == Pass::failed) return false;
        if (pass == Pass::foundFolder) {
            UniqueFd child = openForEmptying(current.get(), sub, subStat.st_dev, subStat.st_ino, subStat.st_mode);
            if (!child && errno == ENOENT) continue;  // removed by someone else meanwhile: list again
            if (!child) return false;
            trail.push_back({subStat.st_dev, subStat.st_ino, std::move(sub)});
            current = std::move(child);
            continue;
        }
        // The current folder is empty: remove it from the folder above.
        const Level done = trail.back();
        trail.pop_back();
        if (trail.empty()) {
            current.reset();
            struct stat check{};
            if (::fstatat(parentFd, done.name.c_str(), &check, AT_SYMLINK_NOFOLLOW) != 0 ||
                !same(check, done.device, done.inode)) {
                return false;
            }
            return ::unlinkat(parentFd, done.name.c_str(), AT_REMOVEDIR) == 0;
        }
        current = upAndRemove(std::move(current), done, trail.back());
        if (!current) return false;
    }
}

bool LinkSafe::removeTree(int dirFd, const std::string& name, dev_t device) {
    struct stat st{};
    if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (!S_ISDIR(st.st_mode)) return ::unlinkat(dirFd, name.c_str(), 0) == 0 || errno == ENOENT;
    (void)removeFolder(dirFd, name, st, device);
    return gone(dirFd, name);
}

}  // namespace quorv
