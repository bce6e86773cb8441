// The sweep of the stash when the helper starts: a restore moves an item from the Trash into the
// stash and from there to where it was; a helper stopped in between leaves it there.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "shared/helper/HelperFiles.hpp"
#include "shared/helper/HelperPaths.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

using quorv::LinkSafe;
using quorv::UniqueFd;

namespace {

// The names in a folder, "." and ".." left out.
std::vector<std::string> namesIn(int folder) {
    std::vector<std::string> names;
    const int copy = LinkSafe::openFolderAt(folder, ".").release();
    if (copy < 0) return names;
    DIR* dir = ::fdopendir(copy);
    if (dir == nullptr) {
        ::close(copy);
        return names;
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(dir);
    return names;
}

// A folder only the helper's user may open, as the stash must be.
bool ownFolder(int fd, uid_t euid) {
    struct stat st {};
    return ::fstat(fd, &st) == 0 && st.st_uid == euid && (st.st_mode & 077) == 0;
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (auto tab = line.find('\t'); tab != std::string::npos; tab = line.find('\t', start)) {
        out.push_back(line.substr(start, tab - start));
        start = tab + 1;
    }
    out.push_back(line.substr(start));
    return out;
}

}  // namespace

bool HelperFiles::sweepOne(int logFolder, int stash, const std::string& name, const std::vector<std::string>& logLines,
                           std::string_view log) const {
    struct stat st {};
    if (::fstatat(stash, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
    const std::string identity = helperpaths::identity(st);
    for (const auto& line : logLines) {
        const auto f = fields(line);
        if (f.size() != 3 || f[2] != identity) continue;
        const auto inTrash = helperpaths::split(f[0]);
        const auto home = inTrash && inTrash->name == name ? homeOfTrash(inTrash->folder) : std::nullopt;
        const auto trashed = home ? openTrashOf(*home, true) : std::nullopt;
        if (!trashed) break;
        const auto used = putBack(stash, name, *trashed, f[1]);
        if (!used) break;
        // Under another name the old line no longer finds it; the new one does.
        if (*used != name && forget(line, log)) (void)note(trashed->path + "/" + *used + "\t" + f[1] + "\t" + identity, log);
        return true;
    }
    // Nobody's, as far as the log tells: kept beside the stash for an administrator to look at.
    if (::mkdirat(logFolder, "unclaimed", 0700) != 0 && errno != EEXIST) return false;
    UniqueFd unclaimed(LinkSafe::openFolderAt(logFolder, "unclaimed"));
    if (!unclaimed || !ownFolder(unclaimed.get(), euid_)) return false;
    const Trash spot{std::move(unclaimed), {}, {}};
    return putBack(stash, name, spot, {}).has_value();
}

std::size_t HelperFiles::sweepStash(std::string_view log) const {
    if (log.empty()) log = this->log();
    const auto parts = helperpaths::split(log);
    if (!parts) return 0;
    // Nothing is made here: without the log's folder there is no stash to sweep.
    UniqueFd folder = openFolder(parts->folder);
    if (!folder) return 0;
    UniqueFd stash(LinkSafe::openFolderAt(folder.get(), "restore"));
    if (!stash || !ownFolder(stash.get(), euid_)) return 0;
    const auto names = namesIn(stash.get());
    if (names.empty()) return 0;
    const auto lines = readLog(log).value_or(std::vector<std::string>{});
    std::size_t swept = 0;
    for (const auto& name : names) {
        if (sweepOne(folder.get(), stash.get(), name, lines, log)) ++swept;
    }
    return swept;
}

}  // namespace brimstell
