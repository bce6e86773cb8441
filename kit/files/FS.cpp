#include "kit/files/FS.hpp"

#include <sys/statvfs.h>

#include <limits>

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

}  // namespace brimstell
