#include "support/posix/FileLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/posix/Files.hpp"

namespace quorv {

std::optional<FileLock> FileLock::acquire(const std::string& path, Mode mode, bool wait, mode_t folderMode) {
    files::makeFolders(files::parentOf(path), folderMode);
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (!fd) return std::nullopt;
    // A FIFO or device someone put there is no lock file (O_NONBLOCK keeps the open of a FIFO
    // from waiting for a writer; it has no effect on flock).
    struct stat st{};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    int op = (mode == Mode::exclusive ? LOCK_EX : LOCK_SH) | (wait ? 0 : LOCK_NB);
    while (::flock(fd.get(), op) != 0) {
        if (errno != EINTR) return std::nullopt;
    }
    return FileLock(std::move(fd));
}

FileLock::~FileLock() {
    if (fd_) ::flock(fd_.get(), LOCK_UN);
}

}  // namespace quorv
