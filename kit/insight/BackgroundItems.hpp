#pragma once
// Everything that starts by itself: the jobs of the three launch folders with whether launchd has
// them switched off or running, and the login items of the background-task-management database.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/insight/BTM.hpp"
#include "kit/insight/BackgroundItem.hpp"

namespace brimstell {

// When the file at location was made: its birth time where the file system keeps one, else the
// last change of its contents; nullopt when nothing is there.
std::optional<double> createdAt(const std::string& location);

struct BackgroundItems {
    struct Scan {
        std::vector<BackgroundItem> items;
        std::vector<LoginItem> login;
        bool loginKnown = false;  // the dump could be read, so `login` means something
    };

    // One full scan; dump is absent when the background-task dump could not be had.
    static Scan scan(const std::optional<std::vector<BTMRecord>>& dump);
    // The login items and app helpers of the current user among the records, by name.
    static std::vector<LoginItem> loginItems(const std::vector<BTMRecord>& records);

    // The labels launchd has switched off in a domain ("gui/501", "system").
    static std::set<std::string> disabled(const std::string& domain);
    // The labels with a running process in the user's domain, and in the system's.
    static std::set<std::string> runningLabels();
    static std::set<std::string> runningSystemLabels();

    // Switches an item on or off: the user's domain through launchctl, a system item through the
    // root helper. False when it didn't change.
    static bool setEnabled(const BackgroundItem& item, bool on);

    // The readings of launchctl's answers (pure).
    static std::set<std::string> disabledIn(std::string_view printDisabled);
    static std::set<std::string> runningInList(std::string_view list);
    static std::set<std::string> runningInPrintSystem(std::string_view print);

    // The item a launch property list describes; nothing without a text "Label".
    static std::optional<BackgroundItem> itemAt(const std::string& plist, BackgroundItem::Scope scope);
    // The user's launchd domain, "gui/" and the user's numeric id.
    static std::string userDomain();
    // The folder of a scope, as a location.
    static std::string folder(BackgroundItem::Scope scope);
};

}  // namespace brimstell
