#include "support/posix/AtomicFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <utility>

#include <fmt/format.h>

#include "support/posix/Files.hpp"

namespace quorv::files {

AtomicFile::AtomicFile(std::string path, std::string temp, UniqueFd fd)
    : path_(std::move(path)), temp_(std::move(temp)), fd_(std::move(fd)) {}

AtomicFile::AtomicFile(AtomicFile&& other) noexcept
    : path_(std::move(other.path_)),
      temp_(std::exchange(other.temp_, std::string())),
      fd_(std::move(other.fd_)),
      failed_(other.failed_) {}

AtomicFile::~AtomicFile() {
    if (!temp_.empty()) ::unlink(temp_.c_str());
}

std::optional<AtomicFile> AtomicFile::create(const std::string& path, mode_t mode) {
    const std::string folder = parentOf(path);
    if (!makeFolders(folder, 0755)) return std::nullopt;
    thread_local std::mt19937_64 rng{std::random_device{}()};
    std::string temp = fmt::format("{}/.{}.{}.{:x}.tmp", folder, nameOf(path), ::getpid(), rng());
    UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!fd) return std::nullopt;
    return AtomicFile(path, std::move(temp), std::move(fd));
}

bool AtomicFile::write(std::string_view data) {
    if (!failed_ && (!fd_ || !writeAll(fd_.get(), data))) failed_ = true;
    return !failed_;
}

bool AtomicFile::commit(Sync sync) {
    const bool durable = sync == Sync::durable;
    if (failed_ || !fd_ || (durable && ::fsync(fd_.get()) != 0)) return false;
    fd_.reset();
    if (::rename(temp_.c_str(), path_.c_str()) != 0) return false;
    temp_.clear();
    if (!durable) return true;
    UniqueFd dir(::open(parentOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir) ::fsync(dir.get());
    return true;
}

}  // namespace quorv::files
