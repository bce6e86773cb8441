#pragma once
// The App Updates page's state: the last check's updates and the apps it could not check or reach.
// Used from one thread; the check itself waits for the network.

#include <optional>
#include <string>
#include <vector>

#include "kit/updates/UpdateChecker.hpp"

namespace brimstell {

class UpdatesModel {
public:
    // Reads the last check's date from "updatesLastCheck".
    UpdatesModel();

    std::vector<AppUpdate> updates;
    int upToDate = 0;
    std::vector<AppBundle> cantCheck;
    std::vector<AppBundle> failed;
    std::vector<AppCheck> apps;  // what was asked of each app and why (for --explain)
    bool checking = false;
    bool done = false;
    std::optional<double> lastCheck;  // seconds since 1970
    std::vector<std::string> installing;             // ids of the updates being installed
    std::vector<std::pair<std::string, std::string>> results;  // id and outcome text of each install

    // Checks the installed apps (Apple's left out) and Homebrew; replaces every list and writes
    // "updatesLastCheck" as a date.
    void check();
    // The same over the given apps.
    void check(const std::vector<AppBundle>& installedApps);

    // The line the page shows above (or instead of) its list.
    std::string status() const;
    // "Slack couldn't be reached right now".
    static std::string notReachedText(const std::string& name);

    static constexpr const char* caption = "From the developer's own feed, the App Store or Homebrew";
    static constexpr const char* beforeCheckText = "Click Check for Updates to see which apps have a newer version.";
    static constexpr const char* allCurrentText = "Every app that can be checked is up to date";
    static constexpr const char* cantCheckText =
        "These apps don't publish their versions in a form Brimstell can read, so they're not guessed. Many update themselves.";
    static constexpr const char* openedInStoreText = "Opened in the App Store";
    static constexpr const char* storeUpdatesPage = "macappstore://showUpdatesPage";
};

}  // namespace brimstell
