#include "support/posix/Files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <random>

#include <fmt/format.h>

#include "support/posix/UniqueFd.hpp"

namespace quorv::files {

std::string parentOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string trimTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string nameOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::optional<std::string> readAt(int dirFd, const std::string& name, std::size_t maxBytes) {
    UniqueFd fd(::openat(dirFd, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!fd) return std::nullopt;
    struct stat st{};
    if (::fstat(fd.get(), &st) != 0) return std::nullopt;
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    if (static_cast<std::uintmax_t>(st.st_size) > maxBytes) {
        errno = EFBIG;
        return std::nullopt;
    }
    std::string out;
    out.reserve(static_cast<std::size_t>(st.st_size));  // one allocation for a file read whole
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buf, sizeof buf);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) break;
        // The file may grow while it is read: the cap holds for what is read, too.
        if (out.size() + static_cast<std::size_t>(n) > maxBytes) {
            errno = EFBIG;
            return std::nullopt;
        }
        out.append(buf, static_cast<std::size_t>(n));
    }
    return out;
}

std::optional<std::string> read(const std::string& path, std::size_t maxBytes) {
    return readAt(AT_FDCWD, path, maxBytes);
}

bool makeFolders(const std::string& path, mode_t mode) {
    if (path.empty()) return false;
    struct stat st{};
    if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    const std::string parent = parentOf(path);
    if (parent != path && !makeFolders(parent, mode)) return false;
    if (::mkdir(path.c_str(), mode) == 0 || errno == EEXIST) {
        return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    }
    return false;
}

bool writeAll(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

bool writeAtomically(const std::string& path, std::string_view data, mode_t mode) {
    const std::string folder = parentOf(path);
    if (!makeFolders(folder, 0755)) return false;
    thread_local std::mt19937_64 rng{std::random_device{}()};
    const std::string temp = fmt::format("{}/.{}.{}.{:x}.tmp", folder, nameOf(path), ::getpid(), rng());
    UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!fd) return false;
    if (!writeAll(fd.get(), data) || ::fsync(fd.get()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    fd.reset();
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    UniqueFd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir) ::fsync(dir.get());
    return true;
}

bool appendRecord(const std::string& path, std::string_view record, mode_t mode) {
    if (!makeFolders(parentOf(path), 0755)) return false;
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, mode));
    if (!fd) return false;
    for (;;) {
        ssize_t n = ::write(fd.get(), record.data(), record.size());
        if (n < 0 && errno == EINTR) continue;
        return n == static_cast<ssize_t>(record.size());
    }
}

}  // namespace quorv::files
