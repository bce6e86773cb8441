#include "kit/files/FS.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

#include "kit/files/SizeWalker.hpp"
#include "support/host/Host.hpp"

namespace brimstell {

std::string FS::home() { return quorv::host().home; }

namespace {
std::int64_t bytes(unsigned long long blocks, unsigned long long blockSize) {
    if (blockSize != 0 && blocks > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()) / blockSize) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return static_cast<std::int64_t>(blocks * blockSize);
}
}  // namespace

// statvfs serves both platforms. free is what an unprivileged user may still write (f_bavail).
// Linux has no purgeable space, so "available for important usage" equals free there; the macOS
// adapter's resource value is the one that counts purgeable space.
VolumeStats FS::volumeStats(const std::string& location) {
    struct statvfs st{};
    if (::statvfs(location.c_str(), &st) != 0) return {};
    const unsigned long long unit = st.f_frsize ? st.f_frsize : st.f_bsize;
    VolumeStats v;
    v.total = bytes(st.f_blocks, unit);
    v.free = bytes(st.f_bavail, unit);
    v.available = v.free;
    return v;
}

std::int64_t FS::fileSize(const std::string& path) {
    if (path.empty()) return 0;
#ifdef __linux__
    // statx says whether the file system reported blocks at all; stat can't tell that from a
    // file that is all holes.
    struct statx sx{};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BLOCKS | STATX_SIZE, &sx) == 0) {
        if (sx.stx_mask & STATX_BLOCKS) return static_cast<std::int64_t>(sx.stx_blocks) * 512;
        if (sx.stx_mask & STATX_SIZE) return static_cast<std::int64_t>(sx.stx_size);
        return 0;
    }
    if (errno != ENOSYS) return 0;
#endif
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return 0;
    return static_cast<std::int64_t>(st.st_blocks) * 512;
}

std::int64_t FS::size(const std::string& path) {
    struct stat st{};
    if (path.empty() || ::lstat(path.c_str(), &st) != 0) return 0;
    if (S_ISDIR(st.st_mode)) return SizeWalker::walk(path).bytes;
    return fileSize(path);
}

}  // namespace brimstell
