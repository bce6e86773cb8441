#pragma once
// What the mover refuses to move, whoever asks: one check at the top of each item's move (and of
// each restore target), so every engine and the command line get the same refusals.

#include <optional>
#include <string>
#include <vector>

namespace brimstell {

class MoverGuard {
public:
    // The sentences shown with a refusal.
    static constexpr const char* emptyPath = "No path was given.";
    static constexpr const char* relativePath = "Its path isn't a full path.";
    static constexpr const char* dottedPath = "Its path holds \".\" or \"..\".";
    static constexpr const char* ownRecords = "It holds Brimstell's own records.";
    static constexpr const char* synced = "It is synced to the cloud: removing it here would remove it everywhere.";
    static constexpr const char* protectedPath = "It is protected: the helper never touches it.";

    // Takes the current host's own-state places and home, with their links resolved, once: a
    // mover checking many items builds one guard (the checks are then one realpath per item).
    MoverGuard();

    // Why path must not be moved to the Trash, or nullopt when it may be. In this order:
    // - the path's form: empty, not absolute, or with a "." or ".." component (trailing and
    //   doubled slashes are fine: the mover drops them);
    // - Brimstell's own state (ownState()), an item inside it or a folder that holds it;
    // - an item in one of the home's older sync folders (Dropbox, OneDrive, Google Drive, MEGA,
    //   pCloud Drive, Box, Box Sync, Sync; any case), unless its name is an unsynced cache name;
    // - run as root (host().uid == 0), whatever the helper's protected-path rules protect.
    // Paths are also compared with their folders' links resolved, and without regard to case on
    // a Mac, so another spelling of the same place is refused as well.
    std::optional<std::string> refusalOf(const std::string& path) const;
    // The same with a guard of its own.
    static std::optional<std::string> refusal(const std::string& path) { return MoverGuard().refusalOf(path); }

    // Why an item must not be put back at path: a path that isn't a plain full one ("Its original
    // place isn't a full path."), and whatever the helper's rules protect when run as root.
    static std::optional<std::string> restoreRefusal(const std::string& path);

    // The locations of Brimstell's own state: the history folder, the settings file and its lock,
    // the health history, the clean lock, the widget's container, the helper's moved log and its
    // stash.
    static std::vector<std::string> ownState();

    // The path without doubled or trailing slashes ("/" stays "/").
    static std::string tidy(const std::string& path);

private:
    bool touchesOwnState(const std::vector<std::string>& spellings) const;
    bool inLegacySyncFolder(const std::vector<std::string>& spellings) const;

    bool mac_;
    std::vector<std::string> own_;    // every spelling of every own place, as compared
    std::vector<std::string> homes_;  // the home's spellings, lower case
};

}  // namespace brimstell
