// The file jobs: trash, emptytrash and restore. Each entry is judged on its own; a refusal or a
// failure is that entry's "FAIL" line and never stops the others.

#include "shared/helper/HelperFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "shared/helper/HelperPaths.hpp"
#include "support/posix/Files.hpp"
#include "shared/trash/TrashInfo.hpp"
#include "shared/trash/TrashInfoClaim.hpp"
#include "support/host/Host.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

using quorv::LinkSafe;
using quorv::UniqueFd;

namespace {

constexpr std::string_view usersFolder = "/Users/";
constexpr std::string_view homesFolder = "/home/";
constexpr std::string_view infoSuffix = ".trashinfo";

// Moves fromName into toDir as `name`, else "name 2" … "name 10000"; the name used, or nullopt
// when every name is taken or the move fails for another reason.
std::optional<std::string> moveUnderFreeName(int fromDir, const std::string& fromName, int toDir, const std::string& name) {
    for (int i = 1; i <= HelperFiles::maxNameTries; ++i) {
        std::string candidate = i == 1 ? name : name + " " + std::to_string(i);
        const int error = LinkSafe::renameNoReplace(fromDir, fromName, toDir, candidate);
        if (error == 0) return candidate;
        if (error != EEXIST) return std::nullopt;
    }
    return std::nullopt;
}

bool sameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

void fail(std::string& reply, std::string_view entry) {
    reply += "FAIL\t";
    reply += helperpaths::echo(entry);
    reply += '\n';
}

// The folder of the account that holds path: "/Users/<name>" on a Mac (not Shared), "/home/<name>" on
// Linux; empty for any other path.
std::string accountFolder(std::string_view path, HelperRules rules) {
    const std::string_view top = rules == HelperRules::mac ? usersFolder : homesFolder;
    if (!path.starts_with(top)) return {};
    const std::string_view account = path.substr(top.size(), path.find('/', top.size()) - top.size());
    if (account.empty() || (rules == HelperRules::mac && account == "Shared")) return {};
    return std::string(top) + std::string(account);
}

}  // namespace

std::optional<std::string> HelperFiles::moveIntoTrash(int fromDir, const std::string& fromName, const Trash& trash,
                                                      const std::string& name, const std::string& original) const {
    if (!trash.info) return moveUnderFreeName(fromDir, fromName, trash.files.get(), name);
    struct stat holder {};
    if (::fstat(trash.files.get(), &holder) != 0) return std::nullopt;
    const auto& h = quorv::host();
    // Only root can give the text to the Trash's owner; anyone else writes it as themselves.
    std::optional<TrashInfoClaim::Owner> owner;
    if (euid_ == 0) owner = TrashInfoClaim::Owner{holder.st_uid, holder.st_gid};
    auto claim = TrashInfoClaim::prepare(trash.info.get(), TrashInfo::format(original, h.now(), h.calendar), owner, true);
    if (!claim) return std::nullopt;
    for (int i = 1; i <= maxNameTries; ++i) {
        const std::string candidate = i == 1 ? name : name + " " + std::to_string(i);
        const std::string infoName = candidate + std::string(infoSuffix);
        // The .trashinfo file claims the name before the item takes it, as every freedesktop.org
        // Trash writer does; it appears whole or not at all.
        const int claimed = claim->claim(infoName);
        if (claimed == EEXIST) continue;
        if (claimed != 0) return std::nullopt;
        const int error = LinkSafe::renameNoReplace(fromDir, fromName, trash.files.get(), candidate);
        if (error == 0) return candidate;
        (void)::unlinkat(trash.info.get(), infoName.c_str(), 0);
        if (error != EEXIST) return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string> HelperFiles::putBack(int stash, const std::string& name, const Trash& trash,
                                                const std::string& original) const {
    if (!trash.info) return moveUnderFreeName(stash, name, trash.files.get(), name);
    const int error = LinkSafe::renameNoReplace(stash, name, trash.files.get(), name);
    if (error == 0) return name;
    if (error != EEXIST) return std::nullopt;
    return moveIntoTrash(stash, name, trash, name, original);
}

// ---- trash

bool HelperFiles::trashOne(const std::string& path, const std::string& home, std::string_view log, std::string& reply) const {
    auto refuse = [&] {
        fail(reply, path);
        return false;
    };
    if (helperpaths::breaksLines(path) || isProtected(path, rules_, home)) return refuse();
    auto parts = helperpaths::split(path);
    if (!parts) return refuse();
    UniqueFd folder = openFolder(parts->folder);
    struct stat item {};
    if (!folder || ::fstatat(folder.get(), parts->name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0) return refuse();

    // An item in another account's folder goes to that account's Trash; anything else (shared or
    // system folders) to the caller's.
    std::string owner = accountFolder(path, rules_);
    if (owner.empty() || !openFolder(owner)) owner = home;
    auto trashed = openTrashOf(owner, true);
    if (!trashed) return refuse();

    auto used = moveIntoTrash(folder.get(), parts->name, *trashed, parts->name, path);
    if (!used) return refuse();
    const std::string newPath = trashed->path + "/" + *used;
    struct stat moved {};
    if (::fstatat(trashed->files.get(), used->c_str(), &moved, AT_SYMLINK_NOFOLLOW) == 0) {
        // A log that can't be written only means this item can't be put back by the helper.
        (void)note(newPath + "\t" + path + "\t" + helperpaths::identity(moved), log);
    }
    reply += "OK\t" + path + "\t" + newPath + "\n";
    return true;
}

std::string HelperFiles::trash(const std::vector<std::string>& paths, const std::string& home, std::string_view log) const {
    std::string reply;
    for (const auto& path : paths) trashOne(path, home, log.empty() ? this->log() : log, reply);
    return reply;
}

// ---- emptytrash

bool HelperFiles::emptyOne(const Trash& trash, dev_t trashDevice, const std::string& path) const {
    if (helperpaths::breaksLines(path)) return false;
    auto parts = helperpaths::split(path);
    if (!parts || parts->folder != trash.path) return false;
    const int trashFd = trash.files.get();
    struct stat st {};
    if (::fstatat(trashFd, parts->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
    const bool removed = S_ISDIR(st.st_mode) ? LinkSafe::removeFolder(trashFd, parts->name, st, trashDevice)
                                             : ::unlinkat(trashFd, parts->name.c_str(), 0) == 0;
    // The item's .trashinfo goes after the item, so a reader never lists a file without one.
    if (removed && trash.info) (void)::unlinkat(trash.info.get(), (parts->name + std::string(infoSuffix)).c_str(), 0);
    return removed;
}

std::string HelperFiles::emptyTrash(const std::vector<std::string>& paths, const std::string& home) const {
    // Only the caller's own Trash.
    auto trashed = openTrashOf(home, false);
    struct stat trashStat {};
    const bool usable = trashed && ::fstat(trashed->files.get(), &trashStat) == 0;
    std::string reply;
    for (const auto& path : paths) {
        if (usable && emptyOne(*trashed, trashStat.st_dev, path)) {
            reply += "OK\t" + path + "\n";
        } else {
            fail(reply, path);
        }
    }
    return reply;
}

// ---- restore

bool HelperFiles::restoreOne(const std::string& pair, const std::string& callerHome, std::string_view log,
                             std::string& reply) const {
    const auto tab = pair.find('\t');
    const std::string trashPath = pair.substr(0, tab);
    auto refuse = [&] {
        fail(reply, trashPath);
        return false;
    };
    if (tab == std::string::npos) return refuse();
    const std::string original = pair.substr(tab + 1);
    if (helperpaths::breaksLines(trashPath) || helperpaths::breaksLines(original)) return refuse();

    // The item must lie directly in the Trash of a home.
    auto inTrash = helperpaths::split(trashPath);
    const auto home = inTrash ? homeOfTrash(inTrash->folder) : std::nullopt;
    if (!home) return refuse();
    auto target = helperpaths::split(original);
    if (isProtected(original, rules_, callerHome) || !target) return refuse();

    // Only what the helper moved itself, and only while it is still the same file.
    auto trashed = openTrashOf(*home, false);
    if (!trashed) return refuse();
    const int trashFd = trashed->files.get();
    struct stat item {};
    if (::fstatat(trashFd, inTrash->name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0) return refuse();
    const std::string line = trashPath + "\t" + original + "\t" + helperpaths::identity(item);
    if (!noted(line, log)) return refuse();

    UniqueFd folder = openFolder(target->folder);
    UniqueFd stash = openStash(log);
    if (!folder || !stash) return refuse();
    if (LinkSafe::renameNoReplace(trashFd, inTrash->name, stash.get(), inTrash->name) != 0) return refuse();

    // In the stash nobody else can touch it; make sure the file that got there is the one checked
    // (the Trash's owner could have swapped it in between).
    struct stat stashed {};
    const bool unchanged = ::fstatat(stash.get(), inTrash->name.c_str(), &stashed, AT_SYMLINK_NOFOLLOW) == 0 &&
                           sameFile(stashed, item);
    if (unchanged) {
        struct stat there {};
        const bool free = ::fstatat(folder.get(), target->name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0
                              ? errno == ENOENT
                              : sameFile(there, item);
        if (free && LinkSafe::renameNoReplace(stash.get(), inTrash->name, folder.get(), target->name) == 0) {
            (void)forget(line, log);
            if (trashed->info) (void)::unlinkat(trashed->info.get(), (inTrash->name + std::string(infoSuffix)).c_str(), 0);
            reply += "OK\t" + trashPath + "\t" + original + "\n";
            return true;
        }
    }
    // Back into the Trash; when even that fails the item stays in the stash (until the sweep).
    (void)putBack(stash.get(), inTrash->name, *trashed, original);
    return refuse();
}

std::string HelperFiles::restore(const std::vector<std::string>& pairs, const std::string& home,
                                 std::string_view log) const {
    // The Trash of each item is named in its own entry and the moved log decides what may come
    // back; the caller's home only widens, on Linux, where an item may return to.
    std::string reply;
    for (const auto& pair : pairs) restoreOne(pair, home, log.empty() ? this->log() : log, reply);
    return reply;
}

std::optional<std::string> HelperFiles::run(std::string_view op, const std::vector<std::string>& list,
                                            const std::string& home) const {
    if (op == "trash") return trash(list, home);
    if (op == "emptytrash") return emptyTrash(list, home);
    if (op == "restore") return restore(list, home);
    return std::nullopt;
}

}  // namespace brimstell
