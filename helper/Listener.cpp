#ifdef __linux__

#include "helper/Listener.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "support/posix/RootControlled.hpp"

namespace brimstell::helperd {

quorv::UniqueFd activatedSocket(const Activation& activation) {
    if (activation.listenFds != "1" || activation.listenPid != std::to_string(::getpid())) return {};
    constexpr int fd = 3;
    int type = 0;
    int listening = 0;
    socklen_t length = sizeof type;
    sockaddr_un address{};
    socklen_t addressLength = sizeof address;
    if (::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_STREAM) return {};
    length = sizeof listening;
    if (::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || listening == 0) return {};
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &addressLength) != 0 || address.sun_family != AF_UNIX) {
        return {};
    }
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    return quorv::UniqueFd(fd);
}

quorv::UniqueFd listenAt(const std::string& path, bool makeFolder, std::string& error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path[0] != '/' || path.size() >= sizeof address.sun_path) {
        error = fmt::format("{} can't be a socket path", path);
        return {};
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const std::string folder = path.substr(0, path.rfind('/'));
    if (makeFolder) {
        if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
            error = fmt::format("can't make {}: {}", folder, std::strerror(errno));
            return {};
        }
        auto st = quorv::rootControlled(folder.empty() ? "/" : folder);
        if (!st || !S_ISDIR(st->st_mode)) {
            error = fmt::format("{} must be a folder only root can change", folder);
            return {};
        }
    }
    struct stat there {};
    if (::lstat(path.c_str(), &there) == 0) {
        if (!S_ISSOCK(there.st_mode)) {
            error = fmt::format("{} exists and is not a socket", path);
            return {};
        }
        ::unlink(path.c_str());
    }
    quorv::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        error = fmt::format("can't make a socket: {}", std::strerror(errno));
        return {};
    }
    // The socket file is made 0666 by bind itself, so it never exists with other rights.
    const mode_t previous = ::umask(0111);
    const int bound = ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int bindError = errno;
    ::umask(previous);
    if (bound != 0) {
        error = fmt::format("can't listen on {}: {}", path, std::strerror(bindError));
        return {};
    }
    if (::listen(fd.get(), 16) != 0) {
        error = fmt::format("can't listen on {}: {}", path, std::strerror(errno));
        ::unlink(path.c_str());
        return {};
    }
    return fd;
}

}  // namespace brimstell::helperd

#endif  // __linux__
