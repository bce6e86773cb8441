#pragma once
// The junk scanner of a Linux home: walks it by LinuxJunkCatalogue and returns the rows of the
// junk list with their items measured, as JunkScanner::scan does on a Mac (which hands a Linux
// host's scan here). Stateless; nothing throws, and a folder that can't be read contributes
// nothing. Every folder is opened from its parent without following a link.

#include <string>
#include <vector>

#include "kit/cleaning/JunkScanner.hpp"

namespace brimstell {

struct LinuxJunkScanner {
    // Every category with at least one item found under home, in the list's order: the Linux
    // categories, then Package Caches, Other Developer Caches and Old node_modules; ticked by
    // default, items with fresh ids and allocated sizes, every item selected except the developer
    // places that are not ticked by default.
    static std::vector<JunkCategory> scan(const std::string& home, const JunkScanner::Progress& progress = {});

    // The cache and data folders of home: $XDG_CACHE_HOME and $XDG_DATA_HOME when home is the
    // user's own and they are absolute, else home's ".cache" and ".local/share".
    static std::string cacheFolder(const std::string& home);
    static std::string dataFolder(const std::string& home);

    // The sub-scans, items at size 0 as in JunkScanner's.
    // Folders of the cache folder (Browser Caches, Thumbnails, Music & Chat, Other Developer
    // Caches by name, every other one under Other App Caches, the developer places' left out),
    // and the thumbnails of older desktops in ~/.thumbnails.
    static std::vector<JunkCategory> caches(const std::string& home);
    // Electron apps' caches and logs in ~/.config, and Flatpak and Snap apps' caches.
    static std::vector<JunkCategory> appFolders(const std::string& home);
    // Logs, Installers and Trash.
    static std::vector<JunkCategory> userFolders(const std::string& home);
    // The developer places (Package Caches, Other Developer Caches); missing ones and links left out.
    static std::vector<JunkCategory> developer(const std::string& home);
};

}  // namespace brimstell
