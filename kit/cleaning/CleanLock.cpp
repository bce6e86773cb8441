#include "kit/cleaning/CleanLock.hpp"

#include "support/host/Host.hpp"

#include <map>
#include <mutex>
#include <utility>

#include "kit/cleaning/ProcessLock.hpp"
#include "kit/files/FS.hpp"

namespace brimstell {
namespace {

struct Held {
    ProcessLock lock;
    int holders = 0;
};

// The locks this process holds, by lock file.
std::mutex heldMutex;
std::map<std::string, Held>& held() {
    static std::map<std::string, Held> locks;
    return locks;
}

}  // namespace

std::string CleanLock::file() { return quorv::host().appSupport() + "/clean.lock"; }

std::optional<CleanLock> CleanLock::take() { return take(file()); }

std::optional<CleanLock> CleanLock::take(const std::string& lockFile) {
    if (lockFile.empty()) return std::nullopt;
    const std::lock_guard guard(heldMutex);
    auto& locks = held();
    if (auto it = locks.find(lockFile); it != locks.end()) {
        ++it->second.holders;
        return CleanLock(lockFile);
    }
    auto lock = ProcessLock::take(lockFile);
    if (!lock) return std::nullopt;
    locks.emplace(lockFile, Held{std::move(*lock), 1});
    return CleanLock(lockFile);
}

CleanLock::CleanLock(CleanLock&& other) noexcept : file_(std::exchange(other.file_, std::string())) {}

CleanLock& CleanLock::operator=(CleanLock&& other) noexcept {
    if (this != &other) {
        release();
        file_ = std::exchange(other.file_, std::string());
    }
    return *this;
}

CleanLock::~CleanLock() { release(); }

void CleanLock::release() noexcept {
    if (file_.empty()) return;
    const std::lock_guard guard(heldMutex);
    auto& locks = held();
    if (auto it = locks.find(file_); it != locks.end() && --it->second.holders == 0) locks.erase(it);
    file_.clear();
}

}  // namespace brimstell
