#include "kit/files/FreedesktopTrash.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "support/posix/LinkSafe.hpp"
#include "support/text/MountInfo.hpp"
#include "kit/files/ItemFolder.hpp"
#include "kit/files/TrashInfo.hpp"
#include "kit/files/TrashNames.hpp"
#include "kit/files/TrashTexts.hpp"
#include "shared/trash/TrashInfoClaim.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {

using quorv::host;
using quorv::LinkSafe;
using quorv::UniqueFd;
namespace files = quorv::files;

namespace {

// "<name>.trashinfo" must fit in one file name, so an item's name in the Trash is kept this short.
constexpr std::size_t maxNameBytes = 255 - std::string_view(".trashinfo").size();
constexpr int maxNumberedNames = 10000;
constexpr std::size_t maxInfoBytes = 64 * 1024;
constexpr const char* infoSuffix = ".trashinfo";

std::string uidText() { return std::to_string(host().uid); }

std::string join(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

// A Trash folder: the home Trash, or one in the top folder of a mount (Paths relative to top).
struct TrashDir {
    std::string path;
    std::optional<std::string> top;
};

bool ownedDir(const struct stat& st) { return S_ISDIR(st.st_mode) && st.st_uid == host().uid; }

UniqueFd openDir(int dirFd, const char* name) { return LinkSafe::openFolderAt(dirFd, name); }

// "$top/.Trash/$uid": only when .Trash is a real folder with the sticky bit, and $uid is ours.
UniqueFd openSharedTrash(int topFd, bool create) {
    struct stat st{};
    if (::fstatat(topFd, ".Trash", &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode) || !(st.st_mode & S_ISVTX)) {
        return {};
    }
    UniqueFd shared = openDir(topFd, ".Trash");
    if (!shared || ::fstat(shared.get(), &st) != 0 || !(st.st_mode & S_ISVTX)) return {};
    const std::string uid = uidText();
    if (create && ::mkdirat(shared.get(), uid.c_str(), 0700) != 0 && errno != EEXIST) return {};
    UniqueFd mine = openDir(shared.get(), uid.c_str());
    if (!mine || ::fstat(mine.get(), &st) != 0 || !ownedDir(st)) return {};
    return mine;
}

// "$top/.Trash-$uid": made 0700 when missing; it must be ours and not a link.
UniqueFd openOwnTrash(int topFd, bool create) {
    const std::string name = ".Trash-" + uidText();
    if (create && ::mkdirat(topFd, name.c_str(), 0700) != 0 && errno != EEXIST) return {};
    UniqueFd mine = openDir(topFd, name.c_str());
    struct stat st{};
    if (!mine || ::fstat(mine.get(), &st) != 0 || !ownedDir(st)) return {};
    return mine;
}

// Opens a known Trash folder for reading or erasing, checking it as moveToTrash would.
UniqueFd openTrash(const TrashDir& trash) {
    if (!trash.top) return LinkSafe::openFolder(trash.path, true);
    UniqueFd top = LinkSafe::openFolder(*trash.top, true);
    if (!top) return {};
    if (files::nameOf(trash.path) == ".Trash-" + uidText()) return openOwnTrash(top.get(), false);
    return openSharedTrash(top.get(), false);
}

// The Trash that a location in some Trash's files/ folder belongs to, from its path alone.
std::optional<std::pair<TrashDir, std::string>> trashOf(std::string location) {
    location = files::trimTrailingSlashes(std::move(location));
    if (location.empty() || location[0] != '/') return std::nullopt;
    const std::string name = files::nameOf(location);
    const std::string filesDir = files::parentOf(location);
    if (name.empty() || name == "." || name == ".." || files::nameOf(filesDir) != "files") return std::nullopt;
    const std::string trash = files::parentOf(filesDir);
    const std::string uid = uidText();
    if (trash == FreedesktopTrash::homeTrash()) return std::make_pair(TrashDir{trash, std::nullopt}, name);
    if (files::nameOf(trash) == ".Trash-" + uid) {
        return std::make_pair(TrashDir{trash, files::parentOf(trash)}, name);
    }
    const std::string shared = files::parentOf(trash);
    if (files::nameOf(trash) == uid && files::nameOf(shared) == ".Trash") {
        return std::make_pair(TrashDir{trash, files::parentOf(shared)}, name);
    }
    return std::nullopt;
}

// A regular file's text; a FIFO or device in a .trashinfo's place is refused without waiting.
std::optional<std::string> readAt(int dirFd, const std::string& name, std::size_t maxBytes) {
    return files::readAt(dirFd, name, maxBytes);
}

// Drops the line of the folder `name` from the Trash's "directorysizes" cache, when it has one:
// "<bytes> <mtime> <percent-encoded name>" per line.
void dropDirectorySize(int trashFd, const std::string& trashPath, const std::string& name) {
    const auto text = readAt(trashFd, "directorysizes", 16u << 20);
    if (!text) return;
    std::string kept;
    bool dropped = false;
    std::string_view rest(*text);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        const auto first = line.find(' ');
        const auto second = first == std::string_view::npos ? first : line.find(' ', first + 1);
        if (second != std::string_view::npos && TrashInfo::percentDecode(line.substr(second + 1)) == name) {
            dropped = true;
            continue;
        }
        if (!line.empty()) {
            kept.append(line);
            kept.push_back('\n');
        }
    }
    if (dropped) files::writeAtomically(trashPath + "/directorysizes", kept, 0600);
}

// Mount points from a mountinfo text, as system paths. Left out: pseudo file systems, automounts
// (looking into one mounts it) and network file systems (a server that is gone would hang the
// listing, and with it the agent's run; moving an item there still works).
std::vector<std::string> mountPoints(std::string_view text) {
    static const std::set<std::string, std::less<>> skipped = {
        "autofs",     "proc",   "sysfs",     "cgroup",    "cgroup2",     "devpts",     "mqueue",
        "debugfs",    "tracefs", "securityfs", "pstore",   "bpf",         "configfs",   "fusectl",
        "hugetlbfs",  "binfmt_misc", "nsfs", "efivarfs",  "nfs",         "nfs4",       "cifs",
        "smb3",       "smbfs",  "afs",       "ceph",      "fuse.sshfs",  "fuse.rclone", "davfs"};
    std::vector<std::string> out;
    std::set<std::string> seen;
    for (auto& mount : quorv::parseMountInfo(text)) {
        if (skipped.count(mount.type) != 0) continue;
        if (seen.insert(mount.point).second) out.push_back(std::move(mount.point));
    }
    return out;
}

// Every Trash folder of this user that list() reads: the home Trash, then the mounts' ones.
std::vector<TrashDir> knownTrashes() {
    std::vector<TrashDir> out;
    std::set<std::pair<dev_t, ino_t>> seen;
    auto add = [&](const TrashDir& trash, int fd) {
        struct stat st{};
        if (fd >= 0 && ::fstat(fd, &st) == 0 && seen.insert({st.st_dev, st.st_ino}).second) out.push_back(trash);
    };
    const std::string home = FreedesktopTrash::homeTrash();
    UniqueFd homeFd = LinkSafe::openFolder(home, true);
    add({home, std::nullopt}, homeFd.get());

    const auto mountinfo = files::read(host().path("/proc/self/mountinfo"), 16u << 20);
    if (!mountinfo) return out;
    const std::string uid = uidText();
    for (const auto& point : mountPoints(*mountinfo)) {
        const std::string top = files::trimTrailingSlashes(host().path(point));
        UniqueFd topFd = LinkSafe::openFolder(top, true);
        if (!topFd) continue;
        UniqueFd shared = openSharedTrash(topFd.get(), false);
        if (shared) add({join(top, ".Trash/" + uid), top}, shared.get());
        UniqueFd own = openOwnTrash(topFd.get(), false);
        if (own) add({join(top, ".Trash-" + uid), top}, own.get());
    }
    return out;
}

// The device of path, or of its nearest existing ancestor when it doesn't exist yet.
std::optional<dev_t> deviceOf(std::string path) {
    for (;;) {
        struct stat st{};
        if (::stat(path.c_str(), &st) == 0) return st.st_dev;
        if (errno != ENOENT || path == "/" || path.empty()) return std::nullopt;
        path = files::parentOf(path);
    }
}

// Walks up from the folder fd while the device stays the same (".." never follows a link) and
// returns the top folder of that file system.
UniqueFd topFolderOf(int folderFd) {
    UniqueFd current(::openat(folderFd, ".", LinkSafe::baseFlags));
    struct stat st{};
    if (!current || ::fstat(current.get(), &st) != 0) return {};
    for (int depth = 0; depth < 4096; ++depth) {
        UniqueFd up(::openat(current.get(), "..", LinkSafe::baseFlags));
        struct stat upSt{};
        if (!up || ::fstat(up.get(), &upSt) != 0) return {};
        if (upSt.st_dev != st.st_dev || upSt.st_ino == st.st_ino) return current;
        current = std::move(up);
        st = upSt;
    }
    return {};
}

// Claims a name in the Trash with its .trashinfo, then moves the item under it.
std::optional<std::string> place(int trashFd, const std::string& trashPath, int parentFd, const std::string& name,
                                 const std::string& infoText, std::string& error) {
    for (const char* sub : {"files", "info"}) {
        if (::mkdirat(trashFd, sub, 0700) != 0 && errno != EEXIST) {
            error = trashText::forError(errno);
            return std::nullopt;
        }
    }
    UniqueFd filesFd = openDir(trashFd, "files");
    UniqueFd infoFd = openDir(trashFd, "info");
    // Not synced, as gio and trash-cli don't: a crash of the machine that loses it leaves the item
    // listed without its original place (the cleaning history still has it), and a bulk move
    // stays fast.
    auto claim = infoFd ? TrashInfoClaim::prepare(infoFd.get(), infoText) : std::nullopt;
    if (!filesFd || !claim) {
        error = trashText::notMoved;
        return std::nullopt;
    }
    std::optional<std::string> placed;
    error = trashText::notMoved;
    for (int n = 1; n <= maxNumberedNames && !placed; ++n) {
        const std::string candidate = TrashNames::freedesktop(name, n, maxNameBytes);
        if (candidate.empty()) break;
        const std::string info = candidate + infoSuffix;
        const int claimed = claim->claim(info);
        if (claimed == EEXIST) continue;
        if (claimed != 0) {
            error = trashText::forError(claimed);
            break;
        }
        const int failure = LinkSafe::renameNoReplace(parentFd, name, filesFd.get(), candidate);
        if (failure == 0) {
            placed = join(trashPath, "files/" + candidate);
            break;
        }
        ::unlinkat(infoFd.get(), info.c_str(), 0);
        if (failure == EEXIST || failure == ENOTEMPTY) continue;
        error = trashText::forError(failure);
        break;
    }
    if (placed) error.clear();
    return placed;
}

}  // namespace

std::string FreedesktopTrash::homeTrash() {
    const auto& h = host();
    auto data = h.env("XDG_DATA_HOME");
    // Relative values don't count, as with every XDG base directory.
    if (data && !data->empty() && (*data)[0] == '/') return join(files::trimTrailingSlashes(*data), "Trash");
    return h.inHome(".local/share/Trash");
}

std::optional<std::string> FreedesktopTrash::moveToTrash(const std::string& given, std::string& error) {
    std::string original;
    return moveNotingPlace(given, error, original);
}

namespace {

// The Trash an item of device `device` goes to: the home's when it is on the home's disk, else its
// disk's shared or own one; with the path to record in its .trashinfo.
struct TrashFor {
    UniqueFd fd;
    std::string path;
    std::string recorded;
};

TrashFor trashFor(int parentFd, const std::string& itemPath, dev_t device, std::string& error) {
    TrashFor t;
    t.recorded = itemPath;
    const std::string home = FreedesktopTrash::homeTrash();
    if (deviceOf(home) == device) {
        if (!files::makeFolders(home, 0700)) {
            error = trashText::notMoved;
            return t;
        }
        t.fd = LinkSafe::openFolder(home, true);
        t.path = home;
    } else {
        UniqueFd top = topFolderOf(parentFd);
        const auto topPath = top ? LinkSafe::pathOf(top.get()) : std::nullopt;
        if (topPath && LinkSafe::isInside(itemPath, *topPath)) {
            t.fd = openSharedTrash(top.get(), true);
            t.path = join(*topPath, ".Trash/" + uidText());
            if (!t.fd) {
                t.fd = openOwnTrash(top.get(), true);
                t.path = join(*topPath, ".Trash-" + uidText());
            }
            // Paths in a top folder's Trash are relative to it, so the disk can be mounted elsewhere.
            t.recorded = *topPath == "/" ? itemPath.substr(1) : itemPath.substr(topPath->size() + 1);
        }
        struct stat trashSt{};
        if (!t.fd || ::fstat(t.fd.get(), &trashSt) != 0 || trashSt.st_dev != device) {
            error = trashText::otherDisk;
            t.fd.reset();
            return t;
        }
    }
    if (!t.fd) error = trashText::notMoved;
    return t;
}

}  // namespace

std::optional<std::string> FreedesktopTrash::moveNotingPlace(const std::string& given, std::string& error,
                                                             std::string& original) {
    error.clear();
    const std::string path = files::trimTrailingSlashes(given);
    const std::string name = files::nameOf(path);
    if (!trashText::movablePath(path, name)) {
        error = trashText::notMoved;
        return std::nullopt;
    }
    std::string realParent;
    UniqueFd parentFd = openItemFolder(path, realParent, error);
    if (!parentFd) return std::nullopt;
    struct stat item{}, folder{};
    if (::fstatat(parentFd.get(), name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0 || ::fstat(parentFd.get(), &folder) != 0) {
        error = trashText::forError(errno);
        return std::nullopt;
    }
    if (S_ISDIR(item.st_mode) && item.st_dev != folder.st_dev) {
        error = trashText::notMoved;  // a mount point itself
        return std::nullopt;
    }
    const std::string itemPath = join(realParent, name);

    TrashFor trash = trashFor(parentFd.get(), itemPath, item.st_dev, error);
    if (!trash.fd) return std::nullopt;
    UniqueFd& trashFd = trash.fd;
    const std::string& trashPath = trash.path;
    const std::string& recorded = trash.recorded;
    const std::string realTrash = LinkSafe::pathOf(trashFd.get()).value_or(trashPath);
    if (const char* problem = trashText::nestingProblem(itemPath, realParent, realTrash)) {
        error = problem;
        return std::nullopt;
    }
    const std::string infoText = TrashInfo::format(recorded, host().now(), host().calendar);
    auto location = place(trashFd.get(), trashPath, parentFd.get(), name, infoText, error);
    if (location) original = itemPath;
    return location;
}

std::vector<quorv::TrashedItem> FreedesktopTrash::list() {
    std::vector<quorv::TrashedItem> out;
    for (const auto& trash : knownTrashes()) {
        UniqueFd trashFd = openTrash(trash);
        if (!trashFd) continue;
        UniqueFd filesFd = openDir(trashFd.get(), "files");
        UniqueFd infoFd = openDir(trashFd.get(), "info");
        if (!filesFd) continue;
        if (infoFd) TrashInfoClaim::sweep(infoFd.get(), host().now());
        const int listFd = ::dup(filesFd.get());
        DIR* dir = listFd >= 0 ? ::fdopendir(listFd) : nullptr;
        if (!dir) {
            if (listFd >= 0) ::close(listFd);
            continue;
        }
        std::vector<quorv::TrashedItem> items;
        while (const dirent* entry = ::readdir(dir)) {
            const std::string name(entry->d_name);
            if (name == "." || name == "..") continue;
            quorv::TrashedItem item;
            item.location = join(trash.path, "files/" + name);
            const auto text = infoFd ? readAt(infoFd.get(), name + infoSuffix, maxInfoBytes) : std::nullopt;
            if (text) {
                TrashInfo info = TrashInfo::parse(*text, host().calendar);
                if (info.path && (*info.path)[0] == '/') {
                    item.originalPath = info.path;
                } else if (info.path && trash.top) {
                    item.originalPath = join(*trash.top, *info.path);
                }
                item.dateAdded = info.deletionDate;
            }
            items.push_back(std::move(item));
        }
        ::closedir(dir);
        std::sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.location < b.location; });
        for (auto& i : items) out.push_back(std::move(i));
    }
    return out;
}

std::vector<std::string> FreedesktopTrash::erase(const std::vector<std::string>& locations) {
    std::vector<std::string> gone;
    for (const auto& location : locations) {
        const auto found = trashOf(location);
        if (!found) continue;
        const auto& [trash, name] = *found;
        UniqueFd trashFd = openTrash(trash);
        UniqueFd filesFd = trashFd ? openDir(trashFd.get(), "files") : UniqueFd();
        struct stat filesSt{}, st{};
        if (!filesFd || ::fstat(filesFd.get(), &filesSt) != 0) continue;
        const bool folder = ::fstatat(filesFd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        if (!LinkSafe::removeTree(filesFd.get(), name, filesSt.st_dev)) continue;
        UniqueFd infoFd = openDir(trashFd.get(), "info");
        if (infoFd) ::unlinkat(infoFd.get(), (name + infoSuffix).c_str(), 0);
        if (folder) dropDirectorySize(trashFd.get(), trash.path, name);
        gone.push_back(location);
    }
    return gone;
}

void FreedesktopTrash::forgetRestored(const std::string& location) {
    const auto found = trashOf(location);
    if (!found) return;
    const auto& [trash, name] = *found;
    UniqueFd trashFd = openTrash(trash);
    UniqueFd filesFd = trashFd ? openDir(trashFd.get(), "files") : UniqueFd();
    if (!filesFd) return;
    struct stat st{};
    // Only the bookkeeping of an item that really left: never orphan one still in the Trash.
    if (::fstatat(filesFd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT) return;
    UniqueFd infoFd = openDir(trashFd.get(), "info");
    if (infoFd) ::unlinkat(infoFd.get(), (name + infoSuffix).c_str(), 0);
    dropDirectorySize(trashFd.get(), trash.path, name);
}

bool FreedesktopTrash::isInTrash(const std::string& location) { return trashOf(location).has_value(); }

}  // namespace brimstell
