#pragma once
// The junk rules of a Linux home, beside the Mac's in JunkCatalogue: where Linux apps keep their
// caches and logs ($XDG_CACHE_HOME, ~/.config of Electron apps, ~/.var/app, ~/snap), Linux
// installers in Downloads, the freedesktop.org Trash and the developer places as Linux tools keep
// them. The categories share the Mac's names where they mean the same, so that ticks kept by
// name, Auto Clean's rules and the command line treat both alike.

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kit/cleaning/JunkCatalogue.hpp"

namespace brimstell {

namespace junk {
inline constexpr std::string_view thumbnails = "Thumbnails";
inline constexpr std::string_view sandboxedApps = "Flatpak & Snap Apps";
}  // namespace junk

// Which base folder a Linux rule's path is relative to.
enum class LinuxBase {
    home,   // the home folder
    cache,  // $XDG_CACHE_HOME, else ~/.cache
    data,   // $XDG_DATA_HOME, else ~/.local/share
};

// An entry of the cache folder that is listed under a category of its own, with its own label.
struct CacheEntryRule {
    std::string_view folder;  // the entry's exact name in the cache folder
    std::string_view category;
    std::string_view label;
};

// An app built on Electron or Chromium that keeps its caches and logs in ~/.config/<folder>.
struct ConfigApp {
    std::string_view name;      // starts the labels of its items
    std::string_view folder;    // below ~/.config
    std::string_view category;  // where its caches are listed; its logs go to Logs
};

struct LinuxPlace {
    LinuxBase base;
    std::string_view path;
    std::string_view label;
    DevKind kind;
    bool tickedByDefault;  // becomes the item's `selected`
};

// A folder of sandboxed apps: each app's cache is <folder>/<app>/<cache>.
struct SandboxRule {
    std::string_view folder;  // below home
    std::string_view cache;   // below the app's folder
    std::string_view word;    // starts the label: "Flatpak · org.gimp.GIMP"
};

struct LinuxJunkCatalogue {
    static constexpr std::string_view configFolder = ".config";
    static constexpr std::string_view downloadsFolder = "Downloads";
    // Below the data home; the backend lists it for the user's own home.
    static constexpr std::string_view trashFilesFolder = "Trash/files";
    // Xorg's own log, kept in the data home when the server runs without root.
    static constexpr std::string_view xorgLogFolder = "xorg";

    // The categories of a Linux home in the order the list shows them; the developer ones are
    // JunkCatalogue::developerCategories() (Xcode never has items here).
    static std::span<const CategoryRule> categories();
    // A Linux or developer category by name; null for any other name.
    static const CategoryRule* findCategory(std::string_view name);

    static std::span<const CacheEntryRule> cacheEntries();
    // The rule for an entry of the cache folder (exact name), when one claims it.
    static const CacheEntryRule* cacheEntry(std::string_view folderName);
    // True when a developer place lies directly in the cache folder under this name.
    static bool isDeveloperCacheEntry(std::string_view folderName);

    static std::span<const ConfigApp> configApps();
    // The cache folders inside an Electron app's folder, and its log folder.
    static std::span<const std::string_view> configAppCaches();
    static constexpr std::string_view configAppLogs = "logs";

    static std::span<const SandboxRule> sandboxRules();
    // Loose log files in the home folder.
    static std::span<const std::string_view> homeLogFiles();
    // True for a journal file ("user-1000.journal", "system@….journal~"): journald owns those
    // and rotates them itself, so they never count as logs to clear.
    static bool isJournal(std::string_view fileName);

    static std::span<const std::string_view> installerExtensions();
    // True when the name ends in one of the installer extensions (any case) after a "." that is
    // not its first character: "tool.AppImage", "x.tar.gz", not ".deb".
    static bool isInstaller(std::string_view fileName);

    static std::span<const LinuxPlace> developerPlaces();
};

}  // namespace brimstell
