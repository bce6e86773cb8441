#pragma once
// Auto Clean: cleaning on a schedule without asking. One run moves the junk the catalogue ticks by
// default to the Trash, deletes for good what has been in the Trash too long and moves Downloads
// items nobody touched for long to the Trash, each when its rule is on. Everything moved is in the
// cleaning history under "Auto Clean". A lock file keeps the app and the agent from cleaning at once.

#include <cstdint>
#include <optional>
#include <string>

namespace brimstell {

// What a run would free, by rule.
struct AutoCleanPreview {
    std::int64_t junk = 0;
    std::int64_t trash = 0;
    std::int64_t downloads = 0;
    std::int64_t total() const { return junk + trash + downloads; }
};

// What the one-click clean reports.
struct CleanReport {
    std::string title;
    std::string body;
    std::int64_t freed = 0;
    bool busy = false;  // another clean held the clean lock: nothing was moved
};

class AutoClean {
public:
    static constexpr const char* source = "Auto Clean";
    // The history's name for the one-click clean of safe junk.
    static constexpr const char* quickCleanSource = "Quick Clean";

    // The published state.
    bool running = false;
    std::optional<std::string> message;
    std::optional<AutoCleanPreview> preview;

    // When the next run is due: none when Auto Clean is off or has never run, else the last run
    // plus one period of the chosen frequency in the host's calendar.
    static std::optional<double> nextRun();
    // Seeds the last run with now when none is recorded, so that the first run comes one period
    // after Auto Clean was switched on.
    static void turnedOn();

    // One run. manual: asked for by the user (or by the agent, which alerts itself), so no
    // notification. Returns the bytes freed, or nullopt when it did not run: a run already going in
    // this object, or the lock held by another process. Then nothing is cleaned or recorded.
    std::optional<std::int64_t> run(bool manual);

    // Scans and moves the safe junk (what Auto Clean may take), writes the widget's figures, and
    // says what happened. Holds the clean lock throughout; when another clean has it, moves and
    // writes nothing and its title is CleanLock::busyText.
    static CleanReport cleanSafeJunk();

    // Measures what a run would free now, moving nothing; also kept in `preview`.
    AutoCleanPreview computePreview();

    // The clean lock's file in the home folder (CleanLock::file()).
    static std::string lockFile();
};

}  // namespace brimstell
