#pragma once
// Leftovers of removed apps: entries of the user's Library named after a bundle identifier that
// no installed app has.

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/cleaning/LeftoverGroup.hpp"

namespace brimstell {

struct Leftovers {
    // The Library folders looked in, in this order.
    static const std::array<std::string_view, 10> libraryFolders;
    // Name endings dropped before a name is read as an identifier.
    static const std::array<std::string_view, 3> suffixes;

    // The lower-cased identifiers of the installed apps: those in /Applications,
    // /System/Applications and ~/Applications (and their sub-folders one level down), and those of
    // apps running from anywhere else. On Linux, the installed Flatpak apps.
    static std::set<std::string> installedIDs();
    // The two halves of installedIDs, for a caller that asks the process list only when it must
    // (the agent's hourly look, when an app seems gone): the apps in the app folders (on Linux, the
    // installed Flatpak apps), and the apps running from anywhere else, added to ids (Mac only).
    static std::set<std::string> bundleIDs();
    static void addRunning(std::set<std::string>& ids);
    // A fingerprint of the Mac's app folders: the name, identity and modification time of every
    // entry in them and in their sub-folders one level down. An app added, removed, renamed or
    // replaced by an update changes it; an Info.plist edited in place does not. Empty on Linux.
    static std::string appFoldersStamp();
    // The groups of leftovers on this host: find() over the home's Library on a Mac; on Linux the
    // data folders (~/.var/app/<id>) of Flatpak apps that are no longer installed, which an
    // uninstall leaves behind; nothing when no Flatpak installation can be found, since what is
    // installed can't then be told.
    static std::vector<LeftoverGroup> findHere(const std::set<std::string>& installed);
    // The folders in folder named after an identifier that installed doesn't keep, a group each.
    static std::vector<LeftoverGroup> findAppData(const std::string& folder, const std::set<std::string>& installed);
    // The Flatpak installations on a Linux host: the system's, the user's, and those that
    // /etc/flatpak/installations.d names; only those that exist.
    static std::vector<std::string> flatpakInstallations();
    // The identifier an entry's name stands for ("com.example.app.plist" → "com.example.app"), or
    // nothing for a name that isn't one.
    static std::optional<std::string> bundleID(std::string_view name);
    // The groups of entries in the ten folders of library that belong to no installed app, by
    // name; each entry measured, every item ticked.
    static std::vector<LeftoverGroup> find(const std::string& library, const std::set<std::string>& installed);
    // "com.example.app" → "App".
    static std::string displayName(std::string_view bundleID);
    // Brimstell's own identifier.
    static constexpr const char* ownID = "com.quorv.brimstell";
    // Whether the lower-cased identifier id is an installed app's or belongs to one
    // (com.example.app.helper to com.example.app), or is Apple's or Brimstell's own.
    static bool isKept(const std::string& id, const std::set<std::string>& installed);

    // The ".app" folders of the running processes in the output of `ps -axo comm=` (one
    // executable path per line), as system paths.
    static std::set<std::string> runningAppFolders(std::string_view psOutput);
};

}  // namespace brimstell
