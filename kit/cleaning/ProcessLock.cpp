#include "kit/cleaning/ProcessLock.hpp"

#include "support/posix/Files.hpp"

namespace brimstell {

std::optional<ProcessLock> ProcessLock::take(const std::string& lockFile) {
    if (lockFile.empty()) return std::nullopt;
    auto lock = quorv::FileLock::acquire(lockFile, quorv::FileLock::Mode::exclusive, false, 0700);
    if (!lock) return std::nullopt;
    return ProcessLock(std::move(*lock));
}

std::string ProcessLock::cleanLockFile(const std::string& home) {
    std::string base = quorv::files::trimTrailingSlashes(home);
    if (base == "/") base.clear();
    return base + "/Library/Application Support/Brimstell/clean.lock";
}

}  // namespace brimstell
