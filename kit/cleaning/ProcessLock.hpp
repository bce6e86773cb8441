#pragma once
// The lock that keeps two processes (the app and the agent) from cleaning at the same time: an
// exclusive flock on a lock file, held while the object lives. Cleanings take the clean lock
// through CleanLock, which may be taken again within a process.

#include <optional>
#include <string>
#include <utility>

#include "support/posix/FileLock.hpp"

namespace brimstell {

class ProcessLock {
public:
    // Takes the lock at lockFile: makes its folder if needed (mode 0700), opens or creates the file
    // (mode 0600) without following a symbolic link, and locks it exclusively without waiting.
    // nullopt when someone else holds it, or the file can't be opened or locked.
    static std::optional<ProcessLock> take(const std::string& lockFile);

    ProcessLock(ProcessLock&&) noexcept = default;
    ProcessLock& operator=(ProcessLock&&) noexcept = default;
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;
    ~ProcessLock() = default;  // the file lock unlocks and closes

private:
    explicit ProcessLock(quorv::FileLock lock) : lock_(std::move(lock)) {}
    quorv::FileLock lock_;
};

}  // namespace brimstell
