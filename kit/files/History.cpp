#include "kit/files/History.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "kit/files/FS.hpp"
#include "kit/files/FileEvents.hpp"
#include "kit/files/OnePerFile.hpp"
#include "kit/files/HistoryDecoder.hpp"
#include "kit/files/MoverGuard.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/host/Host.hpp"
#include "support/host/PlatformWords.hpp"
#include "support/host/TrashBackend.hpp"
#include "support/posix/FileLock.hpp"
#include "support/posix/AtomicFile.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/UniqueFd.hpp"
#include "support/text/JsonReader.hpp"
#include "support/text/JsonWriter.hpp"
#include "support/text/TextHash.hpp"
#include "support/text/Uuid.hpp"

namespace brimstell {

using quorv::LinkSafe;

namespace {

constexpr const char* alreadyThere = "something is already in its place";
constexpr const char* needsAdmin = "putting back what it removed needs admin access";
constexpr const char* linkOnTheWay = "A link now stands on the way to its original place.";
constexpr std::size_t maxFileBytes = std::size_t{256} << 20;
constexpr int maxRestoredNames = 10'000;

std::mutex restorerMutex;
History::RootRestorer& rootRestorer() {
    static History::RootRestorer restorer;
    return restorer;
}

std::optional<FileID> identityOf(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return FileID{static_cast<std::int64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

bool sameFile(const struct stat& st, const FileID& id) {
    return static_cast<std::int64_t>(st.st_dev) == id.volume && static_cast<std::uint64_t>(st.st_ino) == id.file;
}

// A root entry's paths are the helper's system paths; these are where they lie for this host.
std::string located(const HistoryEntry& e, const std::string& path) {
    return e.isRoot() ? quorv::host().path(path) : path;
}

enum class Found { item, ambiguous, gone };

// Where the entry's item is in its Trash. The item at the recorded path is it when no identity
// was taken or the identity matches. Otherwise the Trash folder is searched for the identity (the
// item may have been renamed there); when that finds none, an item still standing at the path
// can't be told from the one moved, and with nothing there it's gone.
std::pair<Found, std::string> locate(const HistoryEntry& e) {
    const std::string path = located(e, *e.trashed);
    struct stat st{};
    const bool exists = ::lstat(path.c_str(), &st) == 0;
    if (exists && (!e.fileID || sameFile(st, *e.fileID))) return {Found::item, path};
    if (!e.fileID) return {Found::gone, path};

    std::vector<std::string> matches;
    const std::string folder = quorv::files::parentOf(path);
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* d = ::readdir(dir)) {
            if (std::strcmp(d->d_name, ".") == 0 || std::strcmp(d->d_name, "..") == 0) continue;
            struct stat other{};
            if (::fstatat(::dirfd(dir), d->d_name, &other, AT_SYMLINK_NOFOLLOW) == 0 && sameFile(other, *e.fileID)) {
                matches.push_back(folder + "/" + d->d_name);
            }
        }
        ::closedir(dir);
    }
    if (matches.size() == 1) return {Found::item, matches.front()};
    if (matches.size() > 1 || exists) return {Found::ambiguous, path};
    return {Found::gone, path};
}

RestoreResult failure(std::string reason) {
    RestoreResult r;
    r.reason = std::move(reason);
    return r;
}

RestoreResult failure(RestoreError error) {
    RestoreResult r = failure(std::string(restoreErrorText(error)));
    r.error = error;
    return r;
}

// Where to cut a name so that a UTF-8 character is never split.
std::size_t cutPoint(const std::string& s, std::size_t limit) {
    if (limit >= s.size()) return s.size();
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(s[cut]) & 0xC0) == 0x80) --cut;
    return cut;
}


}  // namespace

std::string restoreErrorText(RestoreError error) {
    switch (error) {
        case RestoreError::notInTrash:
            return "It isn't in a Trash folder.";
        case RestoreError::ambiguous:
            return "It can't be told apart from other items in the Trash: use Restore in " +
                   quorv::phrase(quorv::Phrase::finder, quorv::host()) + ".";
        case RestoreError::gone:
            return "It's no longer in the Trash.";
    }
    return {};
}

std::string_view statusText(EntryStatus status) {
    switch (status) {
        case EntryStatus::inTrash:
            return "in the Trash";
        case EntryStatus::gone:
            return "gone";
        case EntryStatus::restored:
            return "restored";
    }
    return {};
}

std::string RestoreResult::message() const { return ok() ? std::string() : "Couldn't restore: " + reason; }

// ---- The list and its file ----

History::History(std::string file) : file_(std::move(file)) {}

std::string History::defaultFile() { return quorv::host().appSupport() + "/history/history.json"; }

History& History::shared() { return onePerFile<History>(defaultFile()); }

std::string History::lockPath() const { return quorv::files::parentOf(file_) + "/history.lock"; }

// The file's entries read as the text comes, in pieces, with the stamp of the whole text; the
// stamp also when the file was read but isn't a history, none (errno tells why) when it couldn't
// be read.
std::optional<std::vector<HistoryEntry>> readHistory(const std::string& file, std::optional<History::Stamp>& stamp) {
    constexpr std::size_t piece = 512 * 1024;
    HistoryDecoder decoder;
    quorv::TextHash hash;
    std::size_t length = 0;
    stamp.reset();
    const auto take = [&](std::string_view text, std::size_t size) {
        if (length == 0) decoder.expect(size);
        hash.update(text);
        length += text.size();
        return decoder.feed(text) ? decoder.wanted(piece) : piece;
    };
    if (!quorv::files::readInPieces(file, maxFileBytes, piece, take)) return std::nullopt;
    stamp = History::Stamp{length, hash.value()};
    return decoder.finish();
}

// Reads the file when its text changed since it was last read or written. A file that can't be
// read or decoded is set aside under the lock and the history starts empty.
void History::refreshLocked(bool haveFileLock) {
    // A FIFO, a device or a link in the file's place is unreadable (set aside below), never waited on.
    std::optional<Stamp> stamp;
    std::optional<std::vector<HistoryEntry>> decoded;
    if (stamp_) {
        // Read before: the text is looked at whole first, and decoded only when it changed.
        if (const auto text = quorv::files::read(file_, maxFileBytes)) {
            stamp = Stamp{text->size(), quorv::TextHash::of(*text)};
            if (stamp == stamp_) return;
            decoded = decodeHistory(*text);
        }
    } else {
        decoded = readHistory(file_, stamp);
    }
    if (!stamp && errno == ENOENT) {
        entries_.clear();
        stamp_.reset();
        blocked_ = false;
        return;
    }
    if (decoded) {
        entries_ = std::move(*decoded);
        stamp_ = stamp;
        blocked_ = false;
        return;
    }
    if (!haveFileLock) {
        // Set it aside only under the lock, after reading it once more: a writer may have just
        // replaced it.
        quorv::files::makeFolders(quorv::files::parentOf(file_), 0700);
        auto lock = quorv::FileLock::acquire(lockPath(), quorv::FileLock::Mode::exclusive, true);
        refreshLocked(true);
        return;
    }
    entries_.clear();
    stamp_.reset();
    blocked_ = !setAsideLocked();
}

// history.json becomes history.json.<unix seconds> (with .2, .3… should that be taken).
bool History::setAsideLocked() {
    const auto seconds = static_cast<long long>(std::floor(quorv::host().now()));
    const std::string base = fmt::format("{}.{}", file_, seconds);
    for (int n = 1; n <= 100; ++n) {
        const std::string target = n == 1 ? base : fmt::format("{}.{}", base, n);
        const int rc = LinkSafe::renameNoReplace(AT_FDCWD, file_, AT_FDCWD, target);
        if (rc == 0 || rc == ENOENT) return true;
        if (rc != EEXIST) return false;
    }
    return false;
}

bool History::saveLocked() {
    entries_ = pruned(std::move(entries_), quorv::host().now());
    if (blocked_) return false;
    auto out = quorv::files::AtomicFile::create(file_, 0600);
    if (!out) return false;
    quorv::TextHash hash;
    std::size_t length = 0;
    const bool written = writeHistory(entries_, [&](std::string_view piece) {
        hash.update(piece);
        length += piece.size();
        return out->write(piece);
    });
    if (!written || !out->commit()) return false;
    stamp_ = Stamp{length, hash.value()};
    return true;
}

std::string History::journalPath() const { return quorv::files::parentOf(file_) + "/history.journal"; }

namespace {

// Where an item announced before its move (an entry without a Trash path) ended up, when its
// mover died before saying: still at its place means it never moved; else it is looked for in the
// Trash by its identity, and the Trash's own record of its place is preferred.
std::optional<HistoryEntry> settled(HistoryEntry e, std::optional<std::vector<quorv::TrashedItem>>& trashed) {
    struct stat st{};
    if (!e.fileID || (::lstat(e.original.c_str(), &st) == 0 && sameFile(st, *e.fileID))) return std::nullopt;
    const auto trash = quorv::host().trash;
    if (!trash) return std::nullopt;
    if (!trashed) trashed = trash->list();
    for (const auto& item : *trashed) {
        if (::lstat(item.location.c_str(), &st) != 0 || !sameFile(st, *e.fileID)) continue;
        e.trashed = item.location;
        if (item.originalPath) e.original = *item.originalPath;
        return e;
    }
    return std::nullopt;
}

// One journal line: its id, and the entry it records, or nullopt for {"id", "dropped"}. False for a
// line that can't be read (the last one of a process killed mid-write) or has no id.
bool readJournalLine(std::string_view line, std::string& id, std::optional<HistoryEntry>& entry) {
    quorv::JsonReader scan(line);
    bool dropped = false;
    bool hasId = false;
    if (!scan.beginObject()) return false;
    for (std::string key; scan.nextKey(key);) {
        if (key == "id") hasId = scan.peek() == quorv::JsonReader::Kind::string;
        dropped |= key == "dropped";
        if (!(key == "id" && hasId ? scan.readString(id) : scan.skip())) return false;
    }
    if (!scan.atEnd() || !hasId) return false;
    entry.reset();
    if (dropped) return true;
    quorv::JsonReader in(line);
    entry = HistoryEntry::read(in);
    return entry && in.atEnd();
}

}  // namespace

// Adds the journal's entries that the list lacks (by id). A later line of an id replaces an
// earlier one: an announcement, then the moved item, or {"id", "dropped"} for an item that didn't
// move. A line that can't be read (the last one of a process killed mid-write) is skipped.
// True when there was a journal to read.
bool History::replayLocked() {
    const auto text = quorv::files::read(journalPath(), maxFileBytes);
    if (!text) return false;
    std::vector<std::string> order;
    std::map<std::string, std::optional<HistoryEntry>> lines;
    std::string_view rest(*text);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        std::string id;
        std::optional<HistoryEntry> e;
        if (!readJournalLine(line, id, e)) continue;
        if (lines.find(id) == lines.end()) order.push_back(id);
        lines[id] = std::move(e);
    }
    // Of the journal's few ids, those the list already holds (one pass over a list of thousands).
    std::set<std::string> known;
    for (const auto& e : entries_) {
        if (lines.count(e.id) != 0) known.insert(e.id);
    }
    std::optional<std::vector<quorv::TrashedItem>> trashed;
    for (const auto& id : order) {
        auto& e = lines[id];
        if (!e || known.count(id) != 0) continue;
        if (!e->trashed) e = settled(std::move(*e), trashed);
        if (e) entries_.push_back(std::move(*e));
    }
    return true;
}

// Folds a journal left behind into the file, under the file lock.
void History::catchUpLocked() {
    struct stat st{};
    if (::lstat(journalPath().c_str(), &st) != 0) return;
    auto fileLock = quorv::FileLock::acquire(lockPath(), quorv::FileLock::Mode::exclusive, true);
    if (!fileLock) return;
    refreshLocked(true);
    if (replayLocked() && saveLocked()) ::unlink(journalPath().c_str());
}

void History::update(const std::function<void(std::vector<HistoryEntry>&)>& change) {
    {
        std::lock_guard lock(mutex_);
        quorv::files::makeFolders(quorv::files::parentOf(file_), 0700);
        auto fileLock = quorv::FileLock::acquire(lockPath(), quorv::FileLock::Mode::exclusive, true);
        // Without the lock (a folder that can't be written) the list is still changed and kept here.
        refreshLocked(true);
        change(entries_);
        // After the change, so a fold keeps its batch in the order of the request.
        const bool replayed = fileLock && replayLocked();
        if (saveLocked() && replayed) ::unlink(journalPath().c_str());
    }
    FileEvents::post(FileEvents::historyDidChange);
}

std::vector<HistoryEntry> History::entries() {
    std::lock_guard lock(mutex_);
    refreshLocked(false);
    catchUpLocked();
    return entries_;
}

std::optional<HistoryEntry> History::entry(const std::string& id) {
    std::lock_guard lock(mutex_);
    refreshLocked(false);
    catchUpLocked();
    for (const auto& e : entries_) {
        if (e.id == id) return e;
    }
    return std::nullopt;
}

void History::add(const std::vector<HistoryEntry>& added) {
    if (added.empty()) return;
    update([&](std::vector<HistoryEntry>& list) { list.insert(list.end(), added.begin(), added.end()); });
}

HistoryEntry History::entryFor(const MovedItem& m, const std::string& original, const std::string& session,
                               const std::optional<std::string>& source, double now) {
    HistoryEntry e;
    e.id = quorv::newUuid();
    e.original = original;
    e.trashed = m.trashed;
    e.size = m.size;
    e.date = now;
    e.session = session;
    e.source = source;
    if (m.trashed) e.fileID = identityOf(*m.trashed);
    return e;
}

void History::record(const std::vector<MovedItem>& moved, const std::optional<std::string>& source, double now) {
    if (moved.empty()) return;
    const std::string session = quorv::newUuid();
    std::vector<HistoryEntry> added;
    added.reserve(moved.size());
    for (const auto& m : moved) added.push_back(entryFor(m, m.original, session, source, now));
    add(added);
}

bool History::journalDropped(const std::string& id) {
    quorv::JsonWriter line(-1);
    line.beginObject().key("id").string(id).key("dropped").boolean(true).endObject();
    return appendToJournal(line.take() + "\n");
}

bool History::journal(const HistoryEntry& entry) {
    quorv::JsonWriter line(-1);
    line.beginObject();
    entry.writeMembers(line);
    line.endObject();
    return appendToJournal(line.take() + "\n");
}

bool History::appendToJournal(const std::string& line) {
    quorv::files::makeFolders(quorv::files::parentOf(file_), 0700);
    // Shared: movers append side by side; a fold (exclusive) never removes a journal mid-append.
    auto fileLock = quorv::FileLock::acquire(lockPath(), quorv::FileLock::Mode::shared, true);
    quorv::UniqueFd fd(::open(journalPath().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd) return false;
    for (;;) {
        const ssize_t n = ::write(fd.get(), line.data(), line.size());
        if (n < 0 && errno == EINTR) continue;
        return n == static_cast<ssize_t>(line.size());
    }
}

void History::fold(const std::vector<HistoryEntry>& batch) {
    update([&](std::vector<HistoryEntry>& list) {
        // The batch's ids not yet in the list, found in one pass over it.
        std::set<std::string> missing;
        for (const auto& e : batch) missing.insert(e.id);
        for (const auto& e : list) {
            if (missing.empty()) break;
            missing.erase(e.id);
        }
        for (const auto& e : batch) {
            if (missing.erase(e.id) != 0) list.push_back(e);
        }
    });
}

void History::recordRoot(const std::vector<RootMove>& moves, double now, const std::optional<std::string>& source) {
    if (moves.empty()) return;
    const std::string session = quorv::newUuid();
    std::vector<HistoryEntry> added;
    added.reserve(moves.size());
    for (const auto& m : moves) {
        HistoryEntry e;
        e.id = quorv::newUuid();
        e.original = m.original;
        e.trashed = m.trashed;
        e.root = true;
        const std::string where = located(e, m.trashed);
        e.size = m.size ? *m.size : FS::size(where);
        e.date = now;
        e.session = session;
        e.source = source;
        e.fileID = identityOf(where);
        added.push_back(std::move(e));
    }
    add(added);
}

bool History::markRestored(const std::string& id, const std::string& to) {
    bool found = false;
    update([&](std::vector<HistoryEntry>& list) {
        for (auto& e : list) {
            if (e.id == id) {
                e.restoredTo = to;
                found = true;
            }
        }
    });
    return found;
}

std::vector<HistoryEntry> History::pruned(std::vector<HistoryEntry> entries, double now) {
    std::erase_if(entries, [now](const HistoryEntry& e) { return !(now - e.date < keptSeconds); });
    if (entries.size() <= maxEntries) return entries;
    // The oldest by date go; of equal dates the earlier one in the list is the older. Only which
    // ones go matters, so they are picked, not sorted.
    std::vector<std::pair<double, std::size_t>> order(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) order[i] = {entries[i].date, i};
    const auto cut = order.begin() + static_cast<std::ptrdiff_t>(entries.size() - maxEntries);
    std::nth_element(order.begin(), cut, order.end());
    std::vector<bool> drop(entries.size(), false);
    for (auto it = order.begin(); it != cut; ++it) drop[it->second] = true;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (drop[i]) continue;
        if (kept != i) entries[kept] = std::move(entries[i]);
        ++kept;
    }
    entries.resize(kept);
    return entries;
}

std::vector<HistorySession> History::sessions() {
    std::vector<HistoryEntry> list = entries();
    std::vector<HistorySession> out;
    std::map<std::string, std::size_t> index;
    for (auto& e : list) {
        auto [it, isNew] = index.emplace(e.session, out.size());
        if (isNew) {
            HistorySession s;
            s.id = e.session;
            s.date = e.date;
            s.source = e.source;
            out.push_back(std::move(s));
        }
        auto& s = out[it->second];
        s.date = std::max(s.date, e.date);
        s.freed += e.size;
        s.entries.push_back(std::move(e));
    }
    // Newest first; sessions of the same moment in the reverse of their order in the list.
    std::vector<std::size_t> order(out.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return out[a].date != out[b].date ? out[a].date > out[b].date : a > b;
    });
    std::vector<HistorySession> sorted;
    sorted.reserve(out.size());
    for (auto i : order) sorted.push_back(std::move(out[i]));
    return sorted;
}

std::int64_t History::freed(double since) {
    std::int64_t total = 0;
    for (const auto& e : entries()) {
        if (e.date > since) total += e.size;
    }
    return total;
}

EntryStatus History::status(const HistoryEntry& e) {
    if (e.restoredTo) return EntryStatus::restored;
    if (!e.trashed) return EntryStatus::gone;
    if (e.isRoot()) {
        // The item may sit in another account's Trash that this account can't look into.
        struct stat st{};
        const std::string path = located(e, *e.trashed);
        if (::lstat(path.c_str(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR)) return EntryStatus::gone;
        return EntryStatus::inTrash;
    }
    return locate(e).first == Found::gone ? EntryStatus::gone : EntryStatus::inTrash;
}

// As locate decides it: an item at the path, or one of the entry's identity in its folder.
EntryStatus History::status(const HistoryEntry& e, TrashListings& listings) {
    if (e.restoredTo || !e.trashed || e.isRoot()) return status(e);
    const std::string path = located(e, *e.trashed);
    struct stat st{};
    if (::lstat(path.c_str(), &st) == 0) return EntryStatus::inTrash;
    if (!e.fileID) return EntryStatus::gone;
    const std::string folder = quorv::files::parentOf(path);
    auto [it, isNew] = listings.folders.try_emplace(folder);
    if (isNew) {
        if (DIR* dir = ::opendir(folder.c_str())) {
            while (const dirent* d = ::readdir(dir)) {
                struct stat other{};
                if (::fstatat(::dirfd(dir), d->d_name, &other, AT_SYMLINK_NOFOLLOW) == 0) {
                    it->second.emplace(static_cast<std::int64_t>(other.st_dev), static_cast<std::uint64_t>(other.st_ino));
                }
            }
            ::closedir(dir);
        }
    }
    return it->second.count({e.fileID->volume, e.fileID->file}) != 0 ? EntryStatus::inTrash : EntryStatus::gone;
}

// ---- Restoring ----

void History::setRootRestorer(RootRestorer restorer) {
    std::lock_guard lock(restorerMutex);
    rootRestorer() = std::move(restorer);
}

std::string History::restoredName(const std::string& name, int n) {
    std::string stem = name;
    std::string extension;
    const auto dot = name.find_last_of('.');
    // A leading dot names a hidden file, not an extension; a trailing one is part of the name.
    if (dot != std::string::npos && dot != 0 && dot + 1 < name.size()) {
        stem = name.substr(0, dot);
        extension = name.substr(dot);
    }
    const std::string suffix = n <= 1 ? " (restored)" : fmt::format(" (restored {})", n);
    constexpr std::size_t maxName = 255;
    if (extension.size() + suffix.size() > maxName / 2) {
        stem = name;
        extension.clear();
    }
    if (stem.size() + suffix.size() + extension.size() > maxName) {
        stem.resize(cutPoint(stem, maxName - suffix.size() - extension.size()));
    }
    return stem + suffix + extension;
}

RestoreResult History::putBack(const HistoryEntry& e) {
    if (e.restoredTo) return failure(RestoreError::gone);
    if (auto why = MoverGuard::restoreRefusal(e.original)) return failure(std::move(*why));
    if (e.isRoot()) {
        RootRestorer restorer;
        {
            std::lock_guard lock(restorerMutex);
            restorer = rootRestorer();
        }
        if (!e.trashed) return failure(RestoreError::notInTrash);
        const std::optional<bool> done = restorer ? restorer(*e.trashed, e.original) : std::optional<bool>();
        if (!done) return failure(needsAdmin);
        if (!*done) return failure(alreadyThere);
        RestoreResult r;
        r.restoredTo = e.original;
        return r;
    }

    const auto trash = quorv::host().trash;
    if (!e.trashed || !trash || !trash->isInTrash(*e.trashed)) return failure(RestoreError::notInTrash);
    const auto [found, source] = locate(e);
    if (found == Found::gone) return failure(RestoreError::gone);
    if (found == Found::ambiguous) return failure(RestoreError::ambiguous);

    const std::string folder = quorv::files::parentOf(e.original);
    const std::string name = quorv::files::nameOf(e.original);
    if (name.empty() || name == "." || name == ".." || e.original.empty() || e.original[0] != '/') {
        return failure("Its original place isn't a full path.");
    }
    // The Trash folder is resolved once (links on the way to one's own Trash are one's own), then
    // opened without following links; the original folder is opened, and made where missing, one
    // level at a time without following any link: the item goes back to where it really was.
    const auto trashFolder = LinkSafe::resolve(quorv::files::parentOf(source));
    const quorv::UniqueFd from = trashFolder ? LinkSafe::openExact(*trashFolder) : quorv::UniqueFd();
    if (!from) return failure(errno == ELOOP ? linkOnTheWay : std::string(restoreErrorText(RestoreError::gone)));
    const std::string inTrash = quorv::files::nameOf(source);
    struct stat st{};
    if (::fstatat(from.get(), inTrash.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || (e.fileID && !sameFile(st, *e.fileID))) {
        return failure(RestoreError::gone);
    }
    const quorv::UniqueFd dir = LinkSafe::makeExact(folder, 0755);
    if (!dir && errno == ELOOP) return failure(linkOnTheWay);
    if (!dir) return failure(fmt::format("Its folder couldn't be made again ({}).", std::strerror(errno)));
    for (int n = 0; n <= maxRestoredNames; ++n) {
        const std::string candidate = n == 0 ? name : restoredName(name, n);
        const int rc = LinkSafe::renameNoReplace(from.get(), inTrash, dir.get(), candidate);
        if (rc == EEXIST) continue;
        if (rc != 0) return failure(fmt::format("It couldn't be moved back ({}).", std::strerror(rc)));
        trash->forgetRestored(source);
        RestoreResult r;
        r.restoredTo = (folder == "/" ? "/" : folder + "/") + candidate;
        return r;
    }
    return failure("Every name beside it is taken.");
}

std::vector<RestoreResult> History::restore(const std::vector<HistoryEntry>& list) {
    std::vector<RestoreResult> results;
    results.reserve(list.size());
    std::map<std::string, std::string> restored;  // id -> where
    for (const auto& e : list) {
        results.push_back(putBack(e));
        if (results.back().ok()) restored[e.id] = *results.back().restoredTo;
    }
    if (!restored.empty()) {
        update([&](std::vector<HistoryEntry>& entries) {
            for (auto& e : entries) {
                if (auto it = restored.find(e.id); it != restored.end()) e.restoredTo = it->second;
            }
        });
    }
    return results;
}

RestoreResult History::restore(const HistoryEntry& entry) { return restore(std::vector<HistoryEntry>{entry}).front(); }

}  // namespace brimstell
