#pragma once
// An advisory whole-file lock (flock) held for the object's lifetime.

#include <optional>
#include <string>

#include "support/posix/UniqueFd.hpp"

namespace quorv {

class FileLock {
public:
    enum class Mode { shared, exclusive };
    // Opens (creating if needed) the lock file and takes the lock. With wait false, nullopt when
    // another process holds it; with wait true, blocks until it is free. nullopt on any error.
    static std::optional<FileLock> acquire(const std::string& path, Mode mode, bool wait);

    FileLock(FileLock&&) noexcept = default;
    FileLock& operator=(FileLock&&) noexcept = default;
    ~FileLock();

private:
    explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}
    UniqueFd fd_;
};

}  // namespace quorv
