#include "support/posix/RootControlled.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "support/posix/LinkSafe.hpp"
#include "support/posix/UniqueFd.hpp"

namespace quorv {
namespace {

bool onlyRootChanges(const struct stat& st, bool last) {
    if (st.st_uid != 0) return false;
    if ((st.st_mode & S_IWGRP) != 0 && st.st_gid != 0) return false;
    if ((st.st_mode & S_IWOTH) != 0) return !last && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) != 0;
    return true;
}

}  // namespace

std::optional<struct stat> rootControlled(std::string_view path) {
    if (path.empty() || path[0] != '/') return std::nullopt;
    UniqueFd folder(::open("/", LinkSafe::baseFlags));
    struct stat st {};
    if (!folder || ::fstat(folder.get(), &st) != 0) return std::nullopt;
    std::string_view rest = path.substr(1);
    if (rest.empty()) return onlyRootChanges(st, true) ? std::optional(st) : std::nullopt;
    if (!onlyRootChanges(st, false)) return std::nullopt;

    for (;;) {
        const auto slash = rest.find('/');
        const std::string name(rest.substr(0, slash));
        const bool last = slash == std::string_view::npos;
        if (name.empty() || name == "." || name == "..") return std::nullopt;
        if (last) {
            if (::fstatat(folder.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || S_ISLNK(st.st_mode)) {
                return std::nullopt;
            }
            return onlyRootChanges(st, true) ? std::optional(st) : std::nullopt;
        }
        // Each folder is judged by the descriptor it was opened as, so a swap between the check
        // and the next step can't slip in another one.
        UniqueFd next(::openat(folder.get(), name.c_str(), LinkSafe::baseFlags));
        if (!next || ::fstat(next.get(), &st) != 0 || !onlyRootChanges(st, false)) return std::nullopt;
        folder = std::move(next);
        rest = rest.substr(slash + 1);
        if (rest.empty()) return std::nullopt;  // a trailing "/"
    }
}

}  // namespace quorv
