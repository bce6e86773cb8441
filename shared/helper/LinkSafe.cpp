#include "shared/helper/LinkSafe.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/param.h>
#include <unistd.h>

#ifndef __APPLE__
#include <limits.h>
#include <sys/syscall.h>
#endif

#include <cerrno>

namespace brimstell::linksafe {

int renameExclusive(int fromDir, const std::string& fromName, int toDir, const std::string& toName) {
#ifdef __APPLE__
    if (::renameatx_np(fromDir, fromName.c_str(), toDir, toName.c_str(), RENAME_EXCL) == 0) return 0;
#else
    // Called through syscall(): older C libraries lack the renameat2 wrapper.
    constexpr unsigned renameNoReplace = 1;  // RENAME_NOREPLACE
    if (::syscall(SYS_renameat2, fromDir, fromName.c_str(), toDir, toName.c_str(), renameNoReplace) == 0) return 0;
#endif
    return errno != 0 ? errno : EIO;
}

std::optional<std::string> descriptorPath(int fd) {
#ifdef __APPLE__
    char buffer[MAXPATHLEN] = {};
    if (::fcntl(fd, F_GETPATH, buffer) == -1) return std::nullopt;
    return std::string(buffer);
#else
    char buffer[PATH_MAX + 1];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof buffer) return std::nullopt;
    return std::string(buffer, static_cast<size_t>(n));
#endif
}

}  // namespace brimstell::linksafe
