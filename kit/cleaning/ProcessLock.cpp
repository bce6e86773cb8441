#include "kit/cleaning/ProcessLock.hpp"

#include "support/posix/Files.hpp"

namespace brimstell {

std::optional<ProcessLock> ProcessLock::take(const std::string& lockFile) {
    if (lockFile.empty()) return std::nullopt;
    auto lock = quorv::FileLock::acquire(lockFile, quorv::FileLock::Mode::exclusive, false, 0700);
    if (!lock) return std::nullopt;
    return ProcessLock(std::move(*lock));
}


}  // namespace brimstell
