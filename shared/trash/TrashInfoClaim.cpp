#include "shared/trash/TrashInfoClaim.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string_view>

#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/posix/UniqueFd.hpp"

namespace brimstell {

namespace {

constexpr std::string_view tempPrefix = ".brimstell-";
constexpr std::string_view tempSuffix = ".tmp";
constexpr double sweepAge = 86'400;

std::string temporaryName() {
    static std::atomic<unsigned long> counter{0};
    return std::string(tempPrefix) + std::to_string(::getpid()) + "-" + std::to_string(++counter) + std::string(tempSuffix);
}

}  // namespace

TrashInfoClaim::TrashInfoClaim(int infoFd, std::string text, std::optional<Owner> owner, bool sync)
    : infoFd_(infoFd), text_(std::move(text)), owner_(owner), sync_(sync) {}

TrashInfoClaim::TrashInfoClaim(TrashInfoClaim&& other) noexcept
    : infoFd_(other.infoFd_), text_(std::move(other.text_)), owner_(other.owner_), sync_(other.sync_),
      temp_(std::move(other.temp_)) {
    other.temp_.clear();
}

TrashInfoClaim::~TrashInfoClaim() {
    if (!temp_.empty()) ::unlinkat(infoFd_, temp_.c_str(), 0);
}

std::optional<TrashInfoClaim> TrashInfoClaim::prepare(int infoFd, std::string text, std::optional<Owner> owner, bool sync) {
    TrashInfoClaim claim(infoFd, std::move(text), owner, sync);
    if (!claim.write()) return std::nullopt;
    return claim;
}

bool TrashInfoClaim::write() {
    const std::string name = temporaryName();
    quorv::UniqueFd fd(::openat(infoFd_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd) return false;
    temp_ = name;
    const bool owned = !owner_ || ::fchown(fd.get(), owner_->uid, owner_->gid) == 0;
    const bool written = owned && quorv::files::writeAll(fd.get(), text_) && (!sync_ || ::fsync(fd.get()) == 0);
    if (written) return true;
    ::unlinkat(infoFd_, temp_.c_str(), 0);
    temp_.clear();
    return false;
}

int TrashInfoClaim::claim(const std::string& info) {
    if (temp_.empty()) return EIO;
    if (::linkat(infoFd_, temp_.c_str(), infoFd_, info.c_str(), 0) == 0) return 0;
    const int e = errno;
    if (e != EPERM && e != ENOTSUP && e != EOPNOTSUPP && e != EMLINK) return e;
    const int failure = quorv::LinkSafe::renameNoReplace(infoFd_, temp_, infoFd_, info);
    if (failure == 0) {
        temp_.clear();
        (void)write();  // for a next try, should the item's own move fail
    }
    return failure;
}

void TrashInfoClaim::sweep(int infoFd, double now) {
    const int listFd = ::openat(infoFd, ".", quorv::LinkSafe::folderFlags);
    DIR* dir = listFd >= 0 ? ::fdopendir(listFd) : nullptr;
    if (!dir) {
        if (listFd >= 0) ::close(listFd);
        return;
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name(entry->d_name);
        struct stat st{};
        if (!name.starts_with(tempPrefix) || !name.ends_with(tempSuffix) ||
            ::fstatat(infoFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) {
            continue;
        }
        if (static_cast<double>(st.st_mtime) < now - sweepAge) ::unlinkat(infoFd, entry->d_name, 0);
    }
    ::closedir(dir);
}

}  // namespace brimstell
