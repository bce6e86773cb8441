#include "support/posix/Files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "support/posix/AtomicFile.hpp"
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

namespace {

// The regular file at name, opened to read, and its size; an invalid descriptor with errno set
// as read() says.
UniqueFd openRegular(int dirFd, const std::string& name, std::size_t maxBytes, struct stat& st) {
    UniqueFd fd(::openat(dirFd, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!fd || ::fstat(fd.get(), &st) != 0) return UniqueFd();
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return UniqueFd();
    }
    if (static_cast<std::uintmax_t>(st.st_size) > maxBytes) {
        errno = EFBIG;
        return UniqueFd();
    }
    return fd;
}

}  // namespace

bool readInPieces(const std::string& path, std::size_t maxBytes, std::size_t firstPiece,
                  const std::function<std::size_t(std::string_view, std::size_t)>& take) {
    struct stat st{};
    const UniqueFd fd = openRegular(AT_FDCWD, path, maxBytes, st);
    if (!fd) return false;
    std::string buffer;
    std::size_t total = 0;
    for (std::size_t want = firstPiece;;) {
        buffer.resize(std::max<std::size_t>(want, 1));
        const ssize_t n = ::read(fd.get(), buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        total += static_cast<std::size_t>(n);
        if (total > maxBytes) {
            errno = EFBIG;
            return false;
        }
        if (n == 0) return true;
        want = take(std::string_view(buffer.data(), static_cast<std::size_t>(n)), static_cast<std::size_t>(st.st_size));
    }
}

std::optional<std::string> readAt(int dirFd, const std::string& name, std::size_t maxBytes) {
    struct stat st{};
    const UniqueFd fd = openRegular(dirFd, name, maxBytes, st);
    if (!fd) return std::nullopt;
    // Read straight into the string, sized to the file; a file that grows meanwhile is read on,
    // within the cap.
    std::string out(static_cast<std::size_t>(st.st_size) + 1, '\0');
    std::size_t used = 0;
    for (;;) {
        if (used == out.size()) {
            if (out.size() > maxBytes) {
                errno = EFBIG;
                return std::nullopt;
            }
            out.resize(std::min(out.size() * 2, std::max(maxBytes, maxBytes + 1)));
        }
        const ssize_t n = ::read(fd.get(), out.data() + used, out.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    if (used > maxBytes) {
        errno = EFBIG;
        return std::nullopt;
    }
    out.resize(used);
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

bool writeAtomically(const std::string& path, std::string_view data, mode_t mode, Sync sync) {
    auto file = AtomicFile::create(path, mode);
    return file && file->write(data) && file->commit(sync);
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
