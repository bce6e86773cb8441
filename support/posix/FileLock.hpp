#pragma once
// An advisory whole-file lock (flock) held for the object's lifetime.

#include <sys/types.h>

#include <optional>
#include <string>

#include "support/posix/UniqueFd.hpp"

namespace quorv {

class FileLock {
public:
    enum class Mode { shared, exclusive };
    // Opens (creating if needed, mode 0600) the lock file and takes the lock. Missing folders
    // above it are made with folderMode. A symbolic link at path is refused, not followed, and so
    // is anything that is not a regular file. With wait false, nullopt when another open of the
    // file (in this process or another) holds it; with wait true, blocks until it is free. nullopt
    // on any error.
    static std::optional<FileLock> acquire(const std::string& path, Mode mode, bool wait, mode_t folderMode = 0755);

    FileLock(FileLock&&) noexcept = default;
    FileLock& operator=(FileLock&&) noexcept = default;
    ~FileLock();

private:
    explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}
    UniqueFd fd_;
};

}  // namespace quorv
