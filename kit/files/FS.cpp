#include "kit/files/FS.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <cerrno>
#include <limits>
#include <mutex>
#include <system_error>
#include <future>
#include <unordered_map>

#include "kit/files/FileEvents.hpp"
#include "kit/files/History.hpp"
#include "kit/files/MoverGuard.hpp"
#include "kit/files/SizeWalker.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"
#include "support/host/TrashBackend.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/process/Shell.hpp"
#include "support/text/Uuid.hpp"

#ifdef __APPLE__
#include "kit/files/FSMac.hpp"
#endif

namespace brimstell {

std::string FS::home() { return quorv::host().home; }

namespace {
std::int64_t bytes(unsigned long long blocks, unsigned long long blockSize) {
    if (blockSize != 0 && blocks > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()) / blockSize) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return static_cast<std::int64_t>(blocks * blockSize);
}
}  // namespace

// statvfs serves both platforms. free is what an unprivileged user may still write (f_bavail).
// Linux has no purgeable space, so "available for important usage" equals free there; the macOS
// adapter's resource value is the one that counts purgeable space.
VolumeStats FS::volumeStats(const std::string& location) {
    struct statvfs st{};
    if (::statvfs(location.c_str(), &st) != 0) return {};
    const unsigned long long unit = st.f_frsize ? st.f_frsize : st.f_bsize;
    VolumeStats v;
    v.total = bytes(st.f_blocks, unit);
    v.free = bytes(st.f_bavail, unit);
    v.available = v.free;
    return v;
}

std::int64_t FS::fileSize(const std::string& path) {
    if (path.empty()) return 0;
    return quorv::compat::allocatedBytesAt(AT_FDCWD, path.c_str()).value_or(0);
}

std::int64_t FS::size(const std::string& path) {
    struct stat st{};
    if (path.empty() || ::lstat(path.c_str(), &st) != 0) return 0;
    // Everything beneath it: the folder's own blocks are not beneath it.
    if (S_ISDIR(st.st_mode)) return SizeWalker::walk(path).beneath();
    return fileSize(path);
}

// ---- Cloud storage ----

namespace {

// The path as the platform standardises a location: no empty or "." parts, ".." taken back
// lexically, no trailing "/".
std::string standardized(const std::string& path) {
    if (path.empty()) return path;
    const bool absolute = path[0] == '/';
    std::vector<std::string_view> parts;
    std::string_view rest(path);
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..") {
                parts.pop_back();
                continue;
            }
            if (absolute) continue;  // "/.." is "/"
        }
        parts.push_back(part);
    }
    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += '/';
        out += parts[i];
    }
    return out.empty() ? "." : out;
}

bool isSameOrInside(const std::string& path, const std::string& folder) {
    return path == folder ||
           (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/');
}

std::string lastComponent(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::vector<std::string> FS::cloudRoots() {
    const auto& h = quorv::host();
    return {h.inHome("Library/CloudStorage"), h.inHome("Library/Mobile Documents")};
}

const std::set<std::string>& FS::unsyncedCacheNames() {
    static const std::set<std::string> names{".dropbox.cache", ".debris"};
    return names;
}

const std::vector<std::string>& FS::wholeDiskSkips() {
    static const std::vector<std::string> skips{
        "/Volumes",         "/System",           "/.Spotlight-V100", "/.fseventsd",
        "/.DocumentRevisions-V100", "/.TemporaryItems", "/.vol",     "/private/var/vm",
        "/private/var/db",  "/private/var/run",  "/home",            "/net",
        "/MobileSoftwareUpdate", "/.PreviousSystemInformation",
    };
    return skips;
}

bool FS::isCloudSynced(const std::string& location) {
    const std::string path = standardized(location);
    for (const auto& root : cloudRoots()) {
        if (isSameOrInside(path, standardized(root))) return true;
    }
    // Another account's synced folders, on the Mac's own paths.
    const std::string system = quorv::host().systemPath(path).value_or(path);
    std::vector<std::string_view> pieces;
    std::string_view rest(system);
    while (!rest.empty() && pieces.size() < 4) {
        const auto slash = rest.find('/');
        const std::string_view piece = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (!piece.empty()) pieces.push_back(piece);
    }
    return pieces.size() >= 4 && pieces[0] == "Users" && pieces[2] == "Library" &&
           (pieces[3] == "CloudStorage" || pieces[3] == "Mobile Documents");
}

bool FS::isUbiquitous(const std::string& path) {
#ifdef __APPLE__
    return mac::isUbiquitousItem(path);
#else
    (void)path;
    return false;
#endif
}

// ---- The mover ----

namespace {

// The form in which paths are compared for the ancestor rule: no doubled or trailing "/".
std::string comparable(const std::string& path) {
    std::string out;
    out.reserve(path.size());
    for (char c : path) {
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

std::optional<FileID> identityAt(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return FileID{static_cast<std::int64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

// The history entry of an item about to move: where it is (its folder's links resolved), and its
// identity there, which a move to the Trash keeps.
HistoryEntry announced(const std::string& path, std::int64_t bytes, const std::string& session,
                       const std::optional<std::string>& source, double now) {
    const std::string plain = comparable(path);
    const std::string folder = quorv::LinkSafe::resolve(quorv::files::parentOf(plain)).value_or(quorv::files::parentOf(plain));
    const std::string name = quorv::files::nameOf(plain);
    HistoryEntry e = History::entryFor(MovedItem{plain, std::nullopt, bytes}, folder == "/" ? "/" + name : folder + "/" + name,
                                       session, source, now);
    e.fileID = identityAt(plain).value_or(FileID{});
    return e;
}

// Runs each(0) … each(count - 1) on this thread and up to three of the pool's workers; each
// takes the next index until none is left. Moves are mostly renames, and a size to measure runs
// its own parallel walk. On a worker already, everything runs here.
void forEachConcurrently(std::size_t count, const std::function<void(std::size_t)>& each) {
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        for (std::size_t k = next++; k < count; k = next++) each(k);
    };
    std::vector<std::future<void>> helpers;
    if (count > 1 && !quorv::Background::onWorker()) {
        for (std::size_t t = 1; t < std::min<std::size_t>(count, 4); ++t) helpers.push_back(quorv::Background::run(work));
    }
    try {
        work();
    } catch (...) {
        for (auto& h : helpers) h.wait();  // they use this frame: it must outlive them
        throw;
    }
    for (auto& h : helpers) h.get();
}

// The values of (input index, value) pairs, in the order of the input.
template <typename T>
std::vector<T> inOrder(std::vector<std::pair<std::size_t, T>> indexed) {
    std::sort(indexed.begin(), indexed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<T> out;
    out.reserve(indexed.size());
    for (auto& [index, value] : indexed) out.push_back(std::move(value));
    return out;
}

// The paths that move themselves: those that are their own holder.
std::vector<std::size_t> ownHolders(const std::vector<std::size_t>& holder) {
    std::vector<std::size_t> kept;
    for (std::size_t i = 0; i < holder.size(); ++i) {
        if (holder[i] == i) kept.push_back(i);
    }
    return kept;
}

// One outcome per path given, in order, from what moved (by index) and why the rest didn't.
std::vector<TrashOutcome> outcomesOf(const std::vector<std::string>& paths, const std::vector<std::size_t>& holder,
                                     const std::vector<std::pair<std::size_t, MovedItem>>& moved,
                                     const std::map<std::string, std::string>& reasons) {
    std::vector<TrashOutcome> out(paths.size());
    std::vector<bool> wasMoved(paths.size(), false);
    for (const auto& [index, item] : moved) {
        wasMoved[index] = true;
        out[index].trashed = item.trashed;
        out[index].size = item.size;
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::size_t h = holder[i];
        out[i].path = paths[i];
        if (h != i) out[i].movedWith = paths[h];
        if (wasMoved[h]) continue;
        const auto why = reasons.find(paths[h]);
        out[i].reason = why != reasons.end() ? why->second : "It could not be moved to the Trash.";
    }
    return out;
}

constexpr const char* syncedReason = "It is synced to the cloud: removing it here would remove it everywhere.";
constexpr const char* noTrashReason = "There is no Trash to move it to.";

// Why the item at path (as given, and tidied) is not even tried; nullopt when it may move.
std::optional<std::string> refusalOf(const MoverGuard& guard, const std::string& given, const std::string& path,
                                     bool haveTrash) {
    if (auto why = guard.refusalOf(given)) return why;
    if ((FS::isCloudSynced(path) || FS::isUbiquitous(path)) &&
        FS::unsyncedCacheNames().count(lastComponent(comparable(path))) == 0) {
        return std::string(syncedReason);
    }
    if (!haveTrash) return std::string(noTrashReason);
    return std::nullopt;
}

// Moves the item to the Trash, announced in the history's journal before the move and confirmed
// (with where it really was and where it went) right after it, so that a crash at any point leaves
// it findable. Its location in the Trash, or nullopt with the backend's sentence in error.
std::optional<std::string> moveJournalled(quorv::TrashBackend& trash, History& history, HistoryEntry& entry,
                                          const std::string& path, std::string& error) {
    history.journal(entry);
    std::string original;
    const auto location = trash.moveNotingPlace(path, error, original);
    if (!location) {
        history.journalDropped(entry.id);
        return std::nullopt;
    }
    entry.original = original;
    entry.trashed = location;
    entry.fileID = identityAt(*location).value_or(*entry.fileID);
    history.journal(entry);
    return location;
}

}  // namespace

std::vector<std::size_t> FS::holdersOf(const std::vector<std::string>& paths) {
    std::unordered_map<std::string, std::size_t> first;
    std::vector<std::string> keys;
    keys.reserve(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        keys.push_back(comparable(paths[i]));
        first.emplace(keys.back(), i);  // an empty path stays, for the mover to refuse
    }
    std::vector<std::size_t> holder(paths.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const std::string& k = keys[i];
        holder[i] = first.at(k);
        for (std::size_t slash = k.find('/', 1); slash != std::string::npos; slash = k.find('/', slash + 1)) {
            if (const auto it = first.find(k.substr(0, slash)); it != first.end()) {
                holder[i] = it->second;
                break;
            }
        }
    }
    return holder;
}

TrashResult FS::trash(const std::vector<std::string>& paths, const std::map<std::string, std::int64_t>& sizes,
                      const std::optional<std::string>& source) {
    const std::vector<std::size_t> holder = holdersOf(paths);
    const std::vector<std::size_t> kept = ownHolders(holder);
    const auto trashBackend = quorv::host().trash;

    History& history = History::shared();
    const std::string session = quorv::newUuid();
    const double now = quorv::host().now();

    std::mutex mutex;  // guards everything below it
    std::int64_t freed = 0;
    std::vector<std::pair<std::size_t, MovedItem>> moved;
    std::vector<std::pair<std::size_t, HistoryEntry>> recorded;
    std::vector<std::pair<std::size_t, std::string>> failed;
    std::map<std::string, std::string> reasons;

    const MoverGuard guard;  // what no item may be, worked out once for the whole list
    auto moveOne = [&](std::size_t index) {
        const std::string& given = paths[index];
        const std::string path = MoverGuard::tidy(given);  // recorded without a trailing "/", so it restores
        auto fail = [&](std::string why) {
            std::lock_guard lock(mutex);
            failed.emplace_back(index, given);
            reasons.emplace(given, std::move(why));
        };
        if (auto why = refusalOf(guard, given, path, trashBackend != nullptr)) return fail(std::move(*why));
        const auto known = sizes.find(given);
        const std::int64_t bytes = known != sizes.end() ? known->second : size(path);
        HistoryEntry entry = announced(path, bytes, session, source, now);
        std::string error;
        const auto location = moveJournalled(*trashBackend, history, entry, path, error);
        if (!location) return fail(error.empty() ? "It could not be moved to the Trash." : error);
        MovedItem item{path, location, bytes};
        std::lock_guard lock(mutex);
        freed += bytes;
        moved.emplace_back(index, std::move(item));
        recorded.emplace_back(index, std::move(entry));
    };

    forEachConcurrently(kept.size(), [&](std::size_t k) {
        try {
            moveOne(kept[k]);
        } catch (const std::exception&) {
            std::lock_guard lock(mutex);
            failed.emplace_back(kept[k], paths[kept[k]]);
        }
    });

    TrashResult result;
    result.freed = freed;
    result.outcomes = outcomesOf(paths, holder, moved, reasons);
    result.moved = inOrder(std::move(moved));
    result.failed = inOrder(std::move(failed));
    result.reasons = std::move(reasons);
    const std::vector<HistoryEntry> batch = inOrder(std::move(recorded));
    if (!batch.empty()) history.fold(batch);
    FileEvents::post(FileEvents::sweepDidClean);
    return result;
}

TrashResult FS::trash(const std::vector<FileItem>& items, const std::optional<std::string>& source) {
    std::vector<std::string> paths;
    std::map<std::string, std::int64_t> sizes;
    paths.reserve(items.size());
    for (const auto& item : items) {
        paths.push_back(item.location);
        sizes.emplace(item.location, item.size);
    }
    return trash(paths, sizes, source);
}

// ---- Access and volumes ----

bool FS::hasFullDiskAccess() {
    const auto& h = quorv::host();
    if (!h.isMac()) return true;
    DIR* dir = ::opendir(h.inHome("Library/Safari").c_str());
    if (!dir) return false;
    ::closedir(dir);
    return true;
}

bool FS::openFullDiskAccessSettings() {
    const auto& h = quorv::host();
    if (!h.isMac()) return false;
    quorv::ShellOptions options;
    options.timeLimit = 10;
    const std::string open = h.path("/usr/bin/open");
    return quorv::Shell::run(open, {fullDiskAccessURL}, options).succeeded();
}

namespace {

// Folders (not links, not hidden) directly in folder; with mountsOnly, only those on another
// device than folder, that is mount points.
void addVolumes(const std::string& folder, bool mountsOnly, std::vector<ExternalVolume>& out) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return;
    struct stat parent{};
    const bool haveParent = ::fstat(::dirfd(dir), &parent) == 0;
    std::vector<ExternalVolume> found;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name.empty() || name[0] == '.') continue;
        struct stat st{};
        if (::fstatat(::dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) continue;
        if (mountsOnly && (!haveParent || st.st_dev == parent.st_dev)) continue;
        found.push_back({folder + "/" + name, name});
    }
    ::closedir(dir);
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    out.insert(out.end(), found.begin(), found.end());
}

}  // namespace

std::vector<ExternalVolume> FS::externalVolumes() {
    const auto& h = quorv::host();
    std::vector<ExternalVolume> volumes;
    addVolumes(h.path("/Volumes"), false, volumes);
    if (!h.isMac() && !h.sandbox && !h.userName.empty()) {
        // Desktop Linux mounts removable media per user; a folder left behind there is not a volume.
        addVolumes(h.path("/media/" + h.userName), true, volumes);
        addVolumes(h.path("/run/media/" + h.userName), true, volumes);
    }
    return volumes;
}

}  // namespace brimstell
