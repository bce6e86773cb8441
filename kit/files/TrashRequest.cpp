#include "kit/files/TrashRequest.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "kit/files/Admin.hpp"
#include "kit/files/FS.hpp"
#include "kit/files/MoverGuard.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

namespace {

// True when the user's account can't take path out of its folder: the folder isn't writable to
// it, or it is sticky and neither the folder nor the item is theirs (root can).
bool userCannotMove(const std::string& path) {
    const std::string folder = quorv::files::parentOf(path);
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return errno == EACCES || errno == EROFS || errno == EPERM;
    struct stat dir{}, item{};
    if (::stat(folder.c_str(), &dir) != 0 || ::lstat(path.c_str(), &item) != 0) return false;
    const uid_t me = quorv::host().uid;
    return (dir.st_mode & S_ISVTX) && me != 0 && dir.st_uid != me && item.st_uid != me;
}

// Why path is refused before anyone tries to move it; nullopt when it goes on.
std::optional<std::string> refusedAtOnce(const std::string& path) {
    if (auto why = MoverGuard::refusal(path)) return why;
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return "Nothing is there.";
    return std::nullopt;
}

// The helper's outcome for each of paths: it moves what it may and records it as root entries.
void handToHelper(const std::vector<std::size_t>& indices, std::vector<TrashOutcome>& out, const std::string& source) {
    std::vector<std::string> paths;
    for (const auto i : indices) paths.push_back(out[i].path);
    const auto moved = Admin::moveToTrash(paths, source);
    for (const auto i : indices) {
        TrashOutcome& o = out[i];
        if (!Admin::canTrash(o.path)) {
            o.reason = "It is protected: the helper never touches it.";
        } else if (!moved) {
            o.reason = "needs admin access";
        } else if (const auto it = moved->find(o.path); it != moved->end()) {
            o.trashed = it->second;
        } else {
            o.reason = "The helper could not move it.";
        }
    }
}

}  // namespace

TrashResult trashRequest(const std::vector<std::string>& paths, const std::string& source) {
    const std::vector<std::size_t> holder = FS::holdersOf(paths);
    TrashResult result;
    result.outcomes.resize(paths.size());
    std::vector<std::size_t> ours, helpers;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        result.outcomes[i].path = paths[i];
        if (holder[i] != i) continue;
        if (auto why = refusedAtOnce(paths[i])) {
            result.outcomes[i].reason = std::move(*why);
        } else {
            (userCannotMove(paths[i]) ? helpers : ours).push_back(i);
        }
    }
    if (!ours.empty()) {
        std::vector<std::string> list;
        for (const auto i : ours) list.push_back(paths[i]);
        TrashResult moved = FS::trash(list, {}, source);
        for (std::size_t k = 0; k < ours.size(); ++k) result.outcomes[ours[k]] = std::move(moved.outcomes[k]);
        result.freed = moved.freed;
        result.moved = std::move(moved.moved);
    }
    if (!helpers.empty()) handToHelper(helpers, result.outcomes, source);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (holder[i] == i) continue;
        result.outcomes[i].movedWith = paths[holder[i]];
        result.outcomes[i].reason = result.outcomes[holder[i]].reason;
    }
    for (const auto& o : result.outcomes) {
        if (!o.reason.empty()) result.failed.push_back(o.path);
        if (!o.reason.empty() && o.movedWith.empty()) result.reasons.emplace(o.path, o.reason);
    }
    return result;
}

}  // namespace brimstell
