#pragma once
// The pure rules of Auto Clean: its schedule, what it may clean, which items of a folder are old
// enough to go, and its settings. The run itself is built on these.

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/cleaning/JunkCategory.hpp"
#include "kit/files/FileItem.hpp"

namespace quorv {
class Calendar;
class SettingsStore;
}  // namespace quorv

namespace brimstell {

struct AutoCleanSettings;

struct AutoCleanRules {
    enum class Frequency { daily, weekly, monthly };

    // "daily", "weekly", "monthly": the names the settings store keeps.
    static std::string_view name(Frequency frequency);
    // The frequency of one of those names, exactly as written; nullopt for any other text. Each
    // caller picks its own fallback (the schedule and the settings take weekly).
    static std::optional<Frequency> frequencyNamed(std::string_view name);

    // When the schedule next comes round after last (seconds since 1970): one day, one week of the
    // year or one month later in calendar (so monthly from 31 January is the end of February).
    // nullopt when last is not greater than 0: a schedule that never ran has no next run. last
    // itself when the calendar can't compute the step.
    static std::optional<double> nextRun(double last, Frequency frequency, const quorv::Calendar& calendar);

    // Extensions of downloads still in progress, lower case, without the dot.
    static inline const std::set<std::string, std::less<>> partial = {"download", "crdownload", "part",
                                                                      "partial", "opdownload", "tmp"};
    // True when the text after the name's last dot is one of partial, in any case ("x.CRDOWNLOAD").
    static bool isPartial(std::string_view name);

    // The scanned categories Auto Clean may clean: ticked, not needing the root helper, and not the
    // Trash (which only the Trash age rule empties). In their given order.
    static std::vector<JunkCategory> defaultJunk(const std::vector<JunkCategory>& categories);

    // The dates the age test weighs for one item (seconds since 1970); absent when not known.
    struct ItemDates {
        std::optional<double> added;         // when it came into the folder
        std::optional<double> newestInside;  // a folder's newest modification at any depth
        std::optional<double> lastUsed;      // last access, weighed only by the untouched test
        bool complete = true;                // false when part of a folder could not be looked into
    };
    // The decision: old when every date it has lies before cutoff. A date it lacks is not held
    // against it, but an item with no date at all, or a folder not seen in full, is never old.
    static bool isOld(const ItemDates& dates, double cutoff);

    // The top-level items of folder older than days at now, sorted by name: location
    // folder + "/" + name, label = name, a fresh id, selected, and the allocated size (a folder's
    // whole contents: one file system, each inode once, links not followed, as FS::size counts).
    // The dates: when the item came into the folder; for a folder also the newest modification at
    // any depth; with untouched (the Downloads rule) also the last access of the item or of
    // anything inside it. Nothing is followed through a link and no access time is updated, so
    // looking (a preview) never makes an item look used.
    // Hidden entries are never taken, nor, with untouched, downloads in progress (isPartial).
    // Empty when days is below 1 or the folder can't be opened; a final link at folder is not
    // followed.
    static std::vector<FileItem> old(const std::string& folder, std::int64_t days, double now, bool untouched);

    // Every "autoClean." setting, each missing or wrong-typed value taking its default.
    static AutoCleanSettings settingsFrom(quorv::SettingsStore& store);

    // Folders deeper than this, or holding more entries than this in all, are not walked to the end
    // and so never count as old.
    static constexpr int walkDepth = 64;
    static constexpr std::int64_t walkEntries = 50'000;
};

struct AutoCleanSettings {
    static constexpr std::int64_t defaultEmptyTrashDays = 30;
    static constexpr std::int64_t defaultDownloadsDays = 90;

    bool enabled = false;
    // Weekly when the key is absent or holds another word: the middle of the three choices the
    // settings page offers, and what the agent's schedule takes too.
    AutoCleanRules::Frequency frequency = AutoCleanRules::Frequency::weekly;
    bool junk = true;
    bool emptyTrash = false;
    std::int64_t emptyTrashDays = defaultEmptyTrashDays;
    bool downloads = false;
    std::int64_t downloadsDays = defaultDownloadsDays;
    double lastRun = 0;  // seconds since 1970; 0 = never
    std::int64_t lastFreed = 0;
    bool ranOnce = false;

    bool operator==(const AutoCleanSettings&) const = default;
};

}  // namespace brimstell
