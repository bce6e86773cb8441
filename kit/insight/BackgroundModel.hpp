#pragma once
// What starts with the computer, as the page and the command line show it: the last scan, the
// notes beside each item, and the user's actions (switch off or on, move a leftover to the Trash).
//
// Used from one thread; the scan runs on the background pool and is waited for.

#include <cstddef>
#include <optional>
#include <string>

#include "kit/insight/BackgroundItems.hpp"

namespace brimstell {

class BackgroundModel {
public:
    BackgroundItems::Scan scan;
    bool loaded = false;
    // " · Listing login items needs admin access" or " · Login items couldn't be read" when the
    // login items are unknown; empty when they were read.
    std::string loginNote;
    std::optional<std::string> message;  // the last action's outcome

    // Scans the launch folders and, through the root helper, the background-task dump.
    void load();
    // Switches an item off when it is on, else on; false (with message) when it didn't change.
    // A crontab line is neither switched nor removed here (cronText).
    bool toggle(const BackgroundItem& item);
    // Moves a leftover's property list to the Trash (through the root helper outside the user's
    // own folder), under the clean lock and into the history; false (with message) otherwise.
    bool remove(const BackgroundItem& item);
    // Drops the items whose property lists are gone.
    void pruneMissing();
    // How many items deserve a look (see BackgroundItem::worthALook and LoginItem::worthALook).
    std::size_t worthALook() const;

    // The item with this label, or whose plist is at this location.
    const BackgroundItem* find(const std::string& labelOrPlist) const;

    static constexpr const char* needsAdminText = " · Listing login items needs admin access";
    static constexpr const char* unreadableText = " · Login items couldn't be read";
    static constexpr const char* nothingText = "Nothing Needs a Look";
    static constexpr const char* systemNeedsAdminText = "System items need admin access";
    static constexpr const char* failedText = "Couldn't change";
    static constexpr const char* cronText = "Crontab lines are changed with crontab -e";
    static constexpr const char* removeHint = "Its app is gone; moves this leftover to the Trash";
    static constexpr const char* removeNeedsAdminText = "Removing it needs admin access";
    static constexpr const char* notLeftoverText = "Only an item whose app is gone can be removed here";
    static constexpr const char* source = "Login Items";
};

}  // namespace brimstell
