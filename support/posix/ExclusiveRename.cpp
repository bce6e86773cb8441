#include "support/posix/ExclusiveRename.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace quorv {

int renameExclusive(int fromDir, const char* from, int toDir, const char* to) {
#ifdef __APPLE__
    if (::renameatx_np(fromDir, from, toDir, to, RENAME_EXCL) == 0) return 0;
    return errno;
#else
    if (::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
    const int err = errno;
    if (err != EINVAL && err != ENOSYS) return err;
    // The file system doesn't know the flag.
    struct stat st{};
    if (::fstatat(fromDir, from, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (!S_ISDIR(st.st_mode)) {
        if (::linkat(fromDir, from, toDir, to, 0) == 0) {
            if (::unlinkat(fromDir, from, 0) == 0) return 0;
            const int unlinkError = errno;
            ::unlinkat(toDir, to, 0);
            return unlinkError;
        }
        // A file system without hard links (FAT) falls through to the checked rename.
        if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
    }
    struct stat target{};
    if (::fstatat(toDir, to, &target, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    if (::renameat(fromDir, from, toDir, to) != 0) return errno;
    return 0;
#endif
}

}  // namespace quorv
