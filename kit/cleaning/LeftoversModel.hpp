#pragma once
// The leftovers list as the app and the command line show it: what removed apps left in the
// user's Library, by app, and the move of what is ticked to the Trash, restorably.
//
// Used from one thread; the search and the moves run on the background pool and are waited for.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/cleaning/LeftoverGroup.hpp"

namespace brimstell {

// What one clean did.
struct LeftoversCleanResult {
    std::int64_t freed = 0;
    std::size_t moved = 0;
    std::vector<std::string> skippedLocations;  // could not be moved (vanished, in use, refused)
    bool busy = false;                          // another clean held the clean lock: nothing moved
};

class LeftoversModel {
public:
    std::vector<LeftoverGroup> groups;
    bool scanning = false;
    bool scanned = false;
    std::optional<std::string> message;  // the last clean's result line
    std::int64_t total = 0;              // the sizes of the ticked items

    // Looks for leftovers in the home's Library (on Linux, of Flatpak apps) against the installed apps.
    void scan();
    // Moves the ticked items to the Trash under the clean lock and records them in the cleaning
    // history (source "Leftovers"); what moved leaves the list.
    LeftoversCleanResult trashSelected();
    // Sets total from the ticks.
    void recount();
    // The line the page shows under its list now.
    std::string status() const;

    static constexpr const char* source = "Leftovers";
    static constexpr const char* lookingText = "Looking for leftovers…";
    // "No removed app left anything in your Library." (on Linux, in ~/.var/app)
    static std::string noneText();
    static constexpr const char* beforeScanText = "Click Scan to find what removed apps left behind.";
    static constexpr const char* confirmNote = "They stay restorable from Cleaning History until the Trash is emptied.";
    // "Move 12 MB of leftovers to the Trash?"
    static std::string confirmText(std::int64_t bytes);
    // "Moved 12 MB to the Trash", and ", 2 leftovers skipped" when some could not be moved.
    static std::string resultLine(std::int64_t freed, std::size_t skipped);
};

}  // namespace brimstell
