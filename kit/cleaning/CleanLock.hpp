#pragma once
// The clean lock: every cleaning (a clean of the junk list, the one-click clean, an Auto Clean run,
// deleting old Trash items) holds it while it moves or deletes anything, so that the app, the agent
// and the command line never clean at the same time. It is the exclusive flock of "clean.lock" in
// the user's Application Support folder (ProcessLock). A cleaning that can't have it moves nothing
// and says busyText.
//
// Taking it again in the same process: flock locks an open file description, so a second
// ProcessLock of this process would be refused by its first, and an Auto Clean run, which holds the
// lock, could not clean its junk. The lock is therefore held once per process with a count of
// holders: a take while this process holds it succeeds at once, and the file lock goes with the
// last holder. It keeps other processes out, not other threads of this one; within a process the
// fronts already clean one at a time (the agent runs one job at a time, the command line one
// command, the app's models from its main thread).

#include <optional>
#include <string>

namespace brimstell {

class CleanLock {
public:
    // What a cleaning that finds the lock held says, wherever it is shown.
    static constexpr const char* busyText = "Another clean is running. Try again when it has finished.";

    // The lock of the host's user; nullopt when another process holds it (or it can't be taken).
    static std::optional<CleanLock> take();
    // The lock at lockFile (ProcessLock::take's rules).
    static std::optional<CleanLock> take(const std::string& lockFile);
    // The host's user's lock file.
    static std::string file();

    CleanLock(CleanLock&& other) noexcept;
    CleanLock& operator=(CleanLock&& other) noexcept;
    CleanLock(const CleanLock&) = delete;
    CleanLock& operator=(const CleanLock&) = delete;
    ~CleanLock();

private:
    explicit CleanLock(std::string lockFile) : file_(std::move(lockFile)) {}
    void release() noexcept;
    std::string file_;  // empty once moved from
};

}  // namespace brimstell
