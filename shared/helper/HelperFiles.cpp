// The file jobs: trash, emptytrash and restore. Each entry is judged on its own; a refusal or a
// failure is that entry's "FAIL" line and never stops the others.

#include "shared/helper/HelperFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "shared/helper/HelperPaths.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

using quorv::LinkSafe;
using quorv::UniqueFd;

namespace {

constexpr std::string_view usersFolder = "/Users/";

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

}  // namespace

// ---- trash

bool HelperFiles::trashOne(const std::string& path, const std::string& home, std::string_view log, std::string& reply) const {
    auto refuse = [&] {
        fail(reply, path);
        return false;
    };
    if (helperpaths::breaksLines(path) || isProtected(path)) return refuse();
    auto parts = helperpaths::split(path);
    if (!parts) return refuse();
    UniqueFd folder = openFolder(parts->folder);
    struct stat item {};
    if (!folder || ::fstatat(folder.get(), parts->name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0) return refuse();

    // An item in another account's folder goes to that account's Trash; anything else (shared or
    // system folders) to the caller's.
    std::string owner = home;
    if (path.starts_with(usersFolder)) {
        const std::string account = path.substr(usersFolder.size(), path.find('/', usersFolder.size()) - usersFolder.size());
        const std::string accountHome = std::string(usersFolder) + account;
        if (!account.empty() && account != "Shared" && openFolder(accountHome)) owner = accountHome;
    }
    UniqueFd trashFd = openTrash(owner, true);
    if (!trashFd) return refuse();

    auto used = moveUnderFreeName(folder.get(), parts->name, trashFd.get(), parts->name);
    if (!used) return refuse();
    const std::string newPath = owner + "/.Trash/" + *used;
    struct stat moved {};
    if (::fstatat(trashFd.get(), used->c_str(), &moved, AT_SYMLINK_NOFOLLOW) == 0) {
        // A log that can't be written only means this item can't be put back by the helper.
        (void)note(newPath + "\t" + path + "\t" + helperpaths::identity(moved), log);
    }
    reply += "OK\t" + path + "\t" + newPath + "\n";
    return true;
}

std::string HelperFiles::trash(const std::vector<std::string>& paths, const std::string& home, std::string_view log) const {
    std::string reply;
    for (const auto& path : paths) trashOne(path, home, log, reply);
    return reply;
}

// ---- emptytrash

bool HelperFiles::emptyOne(int trashFd, dev_t trashDevice, const std::string& trashPath, const std::string& path) const {
    if (helperpaths::breaksLines(path)) return false;
    auto parts = helperpaths::split(path);
    if (!parts || parts->folder != trashPath) return false;
    struct stat st {};
    if (::fstatat(trashFd, parts->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!S_ISDIR(st.st_mode)) return ::unlinkat(trashFd, parts->name.c_str(), 0) == 0;
    return LinkSafe::removeFolder(trashFd, parts->name, st, trashDevice);
}

std::string HelperFiles::emptyTrash(const std::vector<std::string>& paths, const std::string& home) const {
    UniqueFd trashFd = openTrash(home, false);
    struct stat trashStat {};
    const bool usable = trashFd && ::fstat(trashFd.get(), &trashStat) == 0;
    const std::string trashPath = home + "/.Trash";
    std::string reply;
    for (const auto& path : paths) {
        if (usable && emptyOne(trashFd.get(), trashStat.st_dev, trashPath, path)) {
            reply += "OK\t" + path + "\n";
        } else {
            fail(reply, path);
        }
    }
    return reply;
}

// ---- restore

bool HelperFiles::restoreOne(const std::string& pair, std::string_view log, std::string& reply) const {
    const auto tab = pair.find('\t');
    const std::string trashPath = pair.substr(0, tab);
    auto refuse = [&] {
        fail(reply, trashPath);
        return false;
    };
    if (tab == std::string::npos) return refuse();
    const std::string original = pair.substr(tab + 1);
    if (helperpaths::breaksLines(trashPath) || helperpaths::breaksLines(original)) return refuse();

    // The item must lie directly in a ".Trash" folder directly in a home.
    auto inTrash = helperpaths::split(trashPath);
    if (!inTrash || !inTrash->folder.ends_with("/.Trash")) return refuse();
    const std::string home = inTrash->folder.substr(0, inTrash->folder.size() - std::string_view("/.Trash").size());
    if (home.empty()) return refuse();
    auto target = helperpaths::split(original);
    if (isProtected(original) || !target) return refuse();

    // Only what the helper moved itself, and only while it is still the same file.
    UniqueFd trashFd = openTrash(home, false);
    struct stat item {};
    if (!trashFd || ::fstatat(trashFd.get(), inTrash->name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0) return refuse();
    const std::string line = trashPath + "\t" + original + "\t" + helperpaths::identity(item);
    if (!noted(line, log)) return refuse();

    UniqueFd folder = openFolder(target->folder);
    UniqueFd stash = openStash(log);
    if (!folder || !stash) return refuse();
    if (LinkSafe::renameNoReplace(trashFd.get(), inTrash->name, stash.get(), inTrash->name) != 0) return refuse();

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
            reply += "OK\t" + trashPath + "\t" + original + "\n";
            return true;
        }
    }
    // Back into the Trash; when even that fails the item stays in the stash.
    (void)moveUnderFreeName(stash.get(), inTrash->name, trashFd.get(), inTrash->name);
    return refuse();
}

std::string HelperFiles::restore(const std::vector<std::string>& pairs, const std::string& /*home*/,
                                 std::string_view log) const {
    // The Trash of each item is named in its own entry; the caller's home is not needed, the
    // moved log decides what may come back.
    std::string reply;
    for (const auto& pair : pairs) restoreOne(pair, log, reply);
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
