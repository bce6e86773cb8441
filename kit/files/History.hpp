#pragma once
// The cleaning history: every item a clean moved to a Trash, so that people can see what was
// cleaned, what it freed, and put it back.
//
// The file is <appSupport>/history/history.json (Library/Application Support/Brimstell/history on a
// Mac), written whole and atomically after every change. Every change is made under the history's
// mutex and an flock on history.lock beside the file, on the list as it stands in the file at that
// moment, so the app, the agent and the command line can all record without losing each other's
// entries. Nothing here throws for a file's or a move's failure.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/files/HistoryEntry.hpp"
#include "kit/files/MovedItem.hpp"

namespace brimstell {

// Why an entry of the user's own account can't be put back.
enum class RestoreError { notInTrash, ambiguous, gone };
// "It isn't in a Trash folder.", "It can't be told apart from other items in the Trash: use
// Restore in Finder." (on Linux: "in the file manager."), "It's no longer in the Trash."
std::string restoreErrorText(RestoreError error);

enum class EntryStatus { inTrash, gone, restored };
// "in the Trash", "gone", "restored"
std::string_view statusText(EntryStatus status);

struct RestoreResult {
    std::optional<std::string> restoredTo;  // where it was put back
    std::optional<RestoreError> error;      // set for the three reasons above
    std::string reason;                     // why not, as shown after "Couldn't restore: "

    bool ok() const { return restoredTo.has_value(); }
    // "Couldn't restore: " + reason; empty when it was put back.
    std::string message() const;
};

struct HistorySession {
    std::string id;
    double date = 0;                      // its newest entry's date
    std::optional<std::string> source;    // its first entry's source
    std::int64_t freed = 0;
    std::vector<HistoryEntry> entries;    // in the order they were recorded
};

// One item that the privileged helper moved: the paths of its "OK" reply line, as root saw them.
struct RootMove {
    std::string original;
    std::string trashed;
    std::optional<std::int64_t> size;  // measured in the Trash when not given
};

class History {
public:
    static constexpr double keptSeconds = 7'776'000;  // 90 days
    static constexpr std::size_t maxEntries = 20'000;

    // A history over this file.
    explicit History(std::string file);
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    // The process's history of the current host: one object per history file, so hosts over
    // different sandboxes never share one.
    static History& shared();
    // host().appSupport() + "/history/history.json"
    static std::string defaultFile();
    const std::string& file() const { return file_; }

    // The list as it stands (reloaded when the file changed).
    std::vector<HistoryEntry> entries();
    std::optional<HistoryEntry> entry(const std::string& id);

    // Entries for what the user's account moved, under one new session. The file identity is
    // taken from the item at its new location.
    void record(const std::vector<MovedItem>& moved, const std::optional<std::string>& source, double now);
    // Entries for what the helper moved, marked root, under one new session. Paths are kept as
    // the helper gave them (system paths); a sandbox maps them to measure and identify the items.
    void recordRoot(const std::vector<RootMove>& moves, double now, const std::optional<std::string>& source = std::nullopt);
    void add(const std::vector<HistoryEntry>& entries);

    // Recording one clean item by item, so that a crash loses nothing that moved. entryFor makes
    // the entry of one moved item, with `original` where it really was. journal appends an entry
    // as one JSON line, with one write, to "history.journal" beside the file: first without its
    // Trash path before the move (its identity taken at its place), then whole right after it, or
    // journalDropped when it didn't move. fold puts the batch into the file (an entry already
    // there, by id, once) and removes the journal. A journal left by a process that died
    // mid-clean is folded in whenever the history is next read or changed; an item it announced
    // but never confirmed is looked for in the Trash by its identity.
    static HistoryEntry entryFor(const MovedItem& moved, const std::string& original, const std::string& session,
                                 const std::optional<std::string>& source, double now);
    bool journal(const HistoryEntry& entry);
    bool journalDropped(const std::string& id);
    void fold(const std::vector<HistoryEntry>& batch);
    std::string journalPath() const;
    // Changes the list, prunes it and saves it; change sees the list as it is in the file now.
    void update(const std::function<void(std::vector<HistoryEntry>&)>& change);
    // Sets restoredTo of the entry with this id; false when there is none.
    bool markRestored(const std::string& id, const std::string& to);

    // Puts an entry back (below) and marks it restored. Several at once save the history once.
    RestoreResult restore(const HistoryEntry& entry);
    std::vector<RestoreResult> restore(const std::vector<HistoryEntry>& entries);

    // The entries grouped by session, newest session first.
    std::vector<HistorySession> sessions();
    // Bytes freed by the entries dated after since.
    std::int64_t freed(double since);
    EntryStatus status(const HistoryEntry& entry);
    // The same for many entries: each Trash folder an item is looked for in is listed once.
    struct TrashListings {
        std::map<std::string, std::set<std::pair<std::int64_t, std::uint64_t>>> folders;
    };
    EntryStatus status(const HistoryEntry& entry, TrashListings& listings);

    // What a history file held: its length and a hash of its text.
    using Stamp = std::pair<std::size_t, std::uint64_t>;

    // Entries less than 90 days old, and of those at most the 20,000 newest, in their order.
    static std::vector<HistoryEntry> pruned(std::vector<HistoryEntry> entries, double now);

    // The helper client's restore, for root entries: true when the helper put the item back,
    // false when it refused (something stands at the original path), nullopt when the helper
    // can't be used. Process-wide; unset means no helper.
    using RootRestorer = std::function<std::optional<bool>(const std::string& trashPath, const std::string& originalPath)>;
    static void setRootRestorer(RootRestorer restorer);

    // The name an item takes beside a taken one, keeping its extension: n = 1 gives
    // "report (restored).pdf", n = 2 "report (restored 2).pdf"; never longer than 255 bytes.
    static std::string restoredName(const std::string& name, int n);

private:
    void refreshLocked(bool haveFileLock);
    bool setAsideLocked();
    bool saveLocked();
    bool replayLocked();
    bool appendToJournal(const std::string& line);
    void catchUpLocked();
    std::string lockPath() const;
    RestoreResult putBack(const HistoryEntry& entry);

    std::mutex mutex_;
    std::string file_;
    std::vector<HistoryEntry> entries_;
    std::optional<Stamp> stamp_;  // what the file held when last read or written
    bool blocked_ = false;  // a bad file could not be set aside: never write over it
};

}  // namespace brimstell
