#pragma once
// The watch on the folders that make programs start with the Mac.

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace brimstell {

struct LoginItemWatch {
    // The user's LaunchAgents, then the system's LaunchAgents and LaunchDaemons. On Linux the
    // user's ~/.config/autostart and ~/.config/systemd/user, then /etc/xdg/autostart,
    // /etc/systemd/user and /etc/systemd/system.
    static std::vector<std::string> places();
    // The paths of the ".plist" entries (on Linux ".desktop" and ".service") in those folders now
    // (not recursive). A folder that can't
    // be read contributes nothing.
    static std::set<std::string> current();
    // What is new since before; nothing when there was no before (the first look never alerts).
    static std::set<std::string> added(const std::optional<std::set<std::string>>& before,
                                       const std::set<std::string>& now);
    // The name people see for an entry: its last path component without its extension.
    static std::string displayName(const std::string& entry);
};

}  // namespace brimstell
