#include "shared/helper/HelperRemoval.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "support/posix/UniqueFd.hpp"

namespace brimstell::helperremoval {

using quorv::UniqueFd;

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct Level {
    dev_t device;
    ino_t inode;
    std::string name;  // in the folder above
};

bool same(const struct stat& st, dev_t device, ino_t inode) { return st.st_dev == device && st.st_ino == inode; }

enum class Pass { empty, removedSome, foundFolder, failed };

// One listing of the folder: removes every non-folder, stops at the first sub-folder.
Pass clearFiles(int dirFd, dev_t device, std::string& folder, struct stat& folderStat) {
    // A descriptor of its own so the listing starts at the beginning every time.
    UniqueFd listFd(::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!listFd) return Pass::failed;
    DIR* dir = ::fdopendir(listFd.get());
    if (!dir) return Pass::failed;
    listFd.release();
    Pass result = Pass::empty;
    for (;;) {
        errno = 0;
        struct dirent* entry = ::readdir(dir);
        if (entry == nullptr) {
            if (errno != 0) result = Pass::failed;
            break;
        }
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        struct stat st {};
        if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;
            result = Pass::failed;
            break;
        }
        if (S_ISDIR(st.st_mode)) {
            if (st.st_dev != device) {
                result = Pass::failed;
                break;
            }
            folder = name;
            folderStat = st;
            result = Pass::foundFolder;
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

}  // namespace

bool removeTree(int parentFd, const std::string& name, const struct stat& expected, dev_t device) {
    if (!S_ISDIR(expected.st_mode) || expected.st_dev != device) return false;
    UniqueFd current(::openat(parentFd, name.c_str(), folderFlags));
    struct stat st {};
    if (!current || ::fstat(current.get(), &st) != 0 || !same(st, expected.st_dev, expected.st_ino)) return false;

    // The folders from the top down to the current one; their descriptors are not kept, the way
    // back up is "..", checked against the identity recorded on the way down.
    std::vector<Level> trail{{st.st_dev, st.st_ino, name}};
    for (;;) {
        std::string sub;
        struct stat subStat {};
        Pass pass = clearFiles(current.get(), device, sub, subStat);
        // Removing while listing may hide entries from the listing: list again until one pass
        // finds nothing left.
        while (pass == Pass::removedSome) pass = clearFiles(current.get(), device, sub, subStat);
        if (pass == Pass::failed) return false;

        if (pass == Pass::foundFolder) {
            UniqueFd child(::openat(current.get(), sub.c_str(), folderFlags));
            struct stat childStat {};
            if (!child || ::fstat(child.get(), &childStat) != 0 || !same(childStat, subStat.st_dev, subStat.st_ino)) {
                return false;
            }
            trail.push_back({childStat.st_dev, childStat.st_ino, std::move(sub)});
            current = std::move(child);
            continue;
        }

        // The current folder is empty: remove it from the folder above.
        const Level done = trail.back();
        trail.pop_back();
        UniqueFd parent;
        if (trail.empty()) {
            current.reset();
            struct stat check {};
            if (::fstatat(parentFd, done.name.c_str(), &check, AT_SYMLINK_NOFOLLOW) != 0 ||
                !same(check, done.device, done.inode)) {
                return false;
            }
            return ::unlinkat(parentFd, done.name.c_str(), AT_REMOVEDIR) == 0;
        }
        parent.reset(::openat(current.get(), "..", folderFlags));
        struct stat parentStat {};
        struct stat check {};
        if (!parent || ::fstat(parent.get(), &parentStat) != 0 ||
            !same(parentStat, trail.back().device, trail.back().inode) ||
            ::fstatat(parent.get(), done.name.c_str(), &check, AT_SYMLINK_NOFOLLOW) != 0 ||
            !same(check, done.device, done.inode)) {
            return false;
        }
        current = std::move(parent);
        if (::unlinkat(current.get(), done.name.c_str(), AT_REMOVEDIR) != 0) return false;
    }
}

}  // namespace brimstell::helperremoval
