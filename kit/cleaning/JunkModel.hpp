#pragma once
// The junk list as the app and the command line show it: runs a scan of the user's home, adds what
// the root helper finds in system folders and other accounts, keeps the user's ticks across scans,
// and moves what is ticked to the Trash, restorably.
//
// The model is used from one thread; the walks and the moves run on the background pool and are
// waited for. Whoever shows the model follows it through onChange.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/cleaning/JunkCategory.hpp"
#include "kit/files/Admin.hpp"

namespace brimstell {

// What one clean did.
struct JunkCleanResult {
    std::int64_t freed = 0;       // the sizes of the items that moved
    std::size_t moved = 0;        // items moved
    std::size_t skipped = 0;      // items that could not be moved (in use, protected, vanished)
    std::vector<std::string> skippedLocations;
    bool busy = false;            // another clean held the clean lock: nothing was moved
};

class JunkModel {
public:
    // Where the model's facts come from; tests and the demo bring their own.
    struct Sources {
        // The scan of one home folder, reporting (stages done, stages in all).
        std::function<std::vector<JunkCategory>(const std::string& home, const std::function<void(int, int)>& progress)>
            scan;
        // Whether the root helper is switched on.
        std::function<bool()> adminEnabled;
        // The helper's categories; nullopt when it can't be reached.
        std::function<std::optional<std::vector<HelperJunkCategory>>()> adminScan;
    };
    // The real sources: JunkScanner, the helper's registration and Admin::scanJunk.
    static Sources defaultSources();

    JunkModel();
    explicit JunkModel(Sources sources);

    // ---- What the list shows ----
    std::vector<JunkCategory> cats;
    bool scanning = false;
    bool scanned = false;
    bool cleaning = false;
    std::optional<std::string> message;  // the last result line
    std::string activity;                // what a running scan is doing: "Looking for junk", …
    int progressDone = 0;                // the scan's stages done, of progressTotal
    int progressTotal = 0;
    std::int64_t total = 0;              // the sizes of the ticked categories, whole
    std::int64_t movable = 0;            // what a clean moves: the ticked items of the ticked categories

    // Called after every change of the state above: on the thread that drives the model, except the
    // scan's progress, which comes from the background pool while that thread waits for the scan.
    std::function<void(const JunkModel&)> onChange;

    // Scans the home folder, then (when the helper is on) the system folders; keeps earlier ticks.
    void scan();
    // Moves the ticked items of the ticked categories to the Trash and records them in the
    // cleaning history under source (the history's default source when none is given). Holds the
    // clean lock throughout; when another clean has it, moves nothing and says CleanLock::busyText.
    JunkCleanResult clean(const std::optional<std::string>& source = std::nullopt);

    // Carries the ticks of an earlier result over to cats: a category keeps its `enabled` and an item
    // (by location) its `selected` when found again.
    void keepChoices(const std::vector<JunkCategory>& from);
    // The ticked items of ticked categories that need the helper; none when it is not on.
    std::vector<FileItem> rootItems(bool adminEnabled) const;

    // The ticked items of the ticked categories, in list order.
    static std::vector<FileItem> tickedItems(const std::vector<JunkCategory>& cats);
    // Their sizes added up.
    static std::int64_t tickedTotal(const std::vector<JunkCategory>& cats);
    // The sizes of the ticked categories, every item counted.
    static std::int64_t categoriesTotal(const std::vector<JunkCategory>& cats);
    // Sets total and movable from cats.
    void recount();
    // What Auto Clean would take of these categories: the ticked items of its categories.
    static std::int64_t autoCleanShare(const std::vector<JunkCategory>& cats);
    // A helper category as a row of the list: ticked, needing the helper.
    static JunkCategory adminCategory(const HelperJunkCategory& found);
    // The key by which an item and a moved location are matched: the system path, with "/var/…"
    // read as "/private/var/…", since the helper reports what it moved under the real folder.
    static std::string matchKey(const std::string& location);
    // "Moved 1.2 GB to the Trash", and ", 3 skipped (in use or protected)" when some could not move.
    static std::string resultLine(std::int64_t freed, std::size_t skipped);

    // The status texts.
    static constexpr const char* lookingText = "Looking for junk";
    static constexpr const char* checkingSystemText = "Checking system files";
    static constexpr const char* adminUnavailableText = "Admin access unavailable";

private:
    void changed();
    // Default ticks, the earlier choices, the total and the widget's figure.
    void settle(const std::vector<JunkCategory>& previous);
    Sources sources_;
};

}  // namespace brimstell
