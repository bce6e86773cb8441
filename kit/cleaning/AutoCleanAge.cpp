// The age test of Auto Clean: which top-level items of a folder are old enough to go.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>
#include <utility>

#include "support/posix/Compat.hpp"
#include "support/posix/LinkSafe.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "kit/files/FS.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"
#include "support/text/Uuid.hpp"

namespace brimstell {

namespace {

constexpr int openFolderFlags = quorv::LinkSafe::folderFlags;

using quorv::compat::accessedSeconds;
using quorv::compat::changedSeconds;
using quorv::compat::modifiedSeconds;

// Opens a folder inside dirFd without following a link and, where the system can, without
// updating its access time (which only the owner may ask for: others open it plainly).
quorv::UniqueFd openFolderAt(int dirFd, const char* name) {
    if constexpr (quorv::compat::noAccessTime != 0) {
        quorv::UniqueFd fd(::openat(dirFd, name, openFolderFlags | quorv::compat::noAccessTime));
        if (fd || errno != EPERM) return fd;
    }
    return quorv::UniqueFd(::openat(dirFd, name, openFolderFlags));
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

Dir openDir(quorv::UniqueFd fd) {
    if (!fd) return nullptr;
    DIR* dir = ::fdopendir(fd.get());
    if (dir) fd.release();
    return Dir(dir);
}

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// What one item's walk found.
struct Inspection {
    AutoCleanRules::ItemDates dates;
    std::int64_t bytes = 0;
    bool folder = false;
};

// The bounded walk of a folder item: the newest modification and (for the untouched test) the
// newest access at any depth, and the allocated bytes. Anything it could not look into, a
// folder on another file system included, makes the walk incomplete.
class Walk {
public:
    Walk(dev_t device, bool untouched) : device_(device), untouched_(untouched) {}

    void add(const struct stat& st) {
        newestModified_ = std::max(newestModified_, modifiedSeconds(st));
        if (untouched_) newestAccess_ = std::max(newestAccess_, accessedSeconds(st));
        if (!S_ISDIR(st.st_mode) && st.st_nlink > 1 && !seen_.insert({st.st_dev, st.st_ino}).second) return;
        bytes_ += static_cast<std::int64_t>(st.st_blocks) * 512;
    }

    void folder(quorv::UniqueFd fd, int depth) {
        Dir dir = openDir(std::move(fd));
        if (!dir) {
            complete_ = false;
            return;
        }
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(dir.get());
            if (!entry) {
                if (errno != 0) complete_ = false;
                return;
            }
            if (isDotOrDotDot(entry->d_name)) continue;
            if (++entries_ > AutoCleanRules::walkEntries) {
                complete_ = false;
                return;
            }
            struct stat st{};
            if (::fstatat(::dirfd(dir.get()), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
                complete_ = false;  // gone while we looked: something is at work in there
                continue;
            }
            add(st);
            if (!S_ISDIR(st.st_mode)) continue;
            if (st.st_dev != device_ || depth >= AutoCleanRules::walkDepth) {
                complete_ = false;
                continue;
            }
            folder(openFolderAt(::dirfd(dir.get()), entry->d_name), depth + 1);
            if (!complete_) return;  // the answer is known: not old
        }
    }

    bool complete() const { return complete_; }
    double newestModified() const { return newestModified_; }
    double newestAccess() const { return newestAccess_; }
    std::int64_t bytes() const { return bytes_; }

private:
    dev_t device_;
    bool untouched_;
    bool complete_ = true;
    std::int64_t entries_ = 0;
    double newestModified_ = 0;
    double newestAccess_ = 0;
    std::int64_t bytes_ = 0;
    std::set<std::pair<dev_t, ino_t>> seen_;
};

// The dates and size of name inside the open folder dirFd; nullopt when it can't be read or is
// not a file, folder or link (a socket or a device is never Auto Clean's to move).
std::optional<Inspection> inspect(int dirFd, const char* name, bool untouched) {
    struct stat st{};
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode)) return std::nullopt;

    Inspection found;
    // ctime is the nearest fact Linux keeps of when an item came into the folder: moving or
    // renaming it there sets it, and so does any later change to the item, which only makes it
    // look younger.
    found.dates.added = changedSeconds(st);
    if (untouched) found.dates.lastUsed = accessedSeconds(st);
    if (!S_ISDIR(st.st_mode)) return found;

    found.folder = true;
    Walk walk(st.st_dev, untouched);
    walk.add(st);
    quorv::UniqueFd fd = openFolderAt(dirFd, name);
    struct stat opened{};
    if (!fd || ::fstat(fd.get(), &opened) != 0 || opened.st_dev != st.st_dev || opened.st_ino != st.st_ino) {
        found.dates.complete = false;  // unreadable, or swapped for another since we looked
        return found;
    }
    walk.folder(std::move(fd), 1);
    found.dates.complete = walk.complete();
    found.dates.newestInside = walk.newestModified();
    if (untouched) found.dates.lastUsed = std::max(*found.dates.lastUsed, walk.newestAccess());
    found.bytes = walk.bytes();
    return found;
}

}  // namespace

std::vector<FileItem> AutoCleanRules::old(const std::string& folder, std::int64_t days, double now, bool untouched) {
    std::vector<FileItem> items;
    if (days < 1 || folder.empty()) return items;
    const std::string top = quorv::files::trimTrailingSlashes(folder);
    Dir dir = openDir(quorv::UniqueFd(::open(top.c_str(), openFolderFlags)));
    if (!dir) return items;

    std::vector<std::string> names;
    for (;;) {
        const dirent* entry = ::readdir(dir.get());
        if (!entry) break;
        const std::string_view name = entry->d_name;
        // Hidden entries stay: Finder's ".DS_Store" and ".localized" belong to the folder itself
        // (the second gives it its localised name), and browsers keep a download's data in a
        // hidden file until it is complete.
        if (name.empty() || name[0] == '.') continue;
        if (untouched && isPartial(name)) continue;
        names.emplace_back(name);
    }
    std::sort(names.begin(), names.end());

    const double cutoff = now - static_cast<double>(days) * 86400.0;
    const std::string prefix = top == "/" ? top : top + "/";
    for (const auto& name : names) {
        const auto found = inspect(::dirfd(dir.get()), name.c_str(), untouched);
        if (!found || !isOld(found->dates, cutoff)) continue;
        FileItem item;
        item.location = prefix + name;
        item.label = name;
        item.id = quorv::newUuid();
        item.size = found->folder ? found->bytes : FS::fileSize(item.location);
        item.selected = true;
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace brimstell
