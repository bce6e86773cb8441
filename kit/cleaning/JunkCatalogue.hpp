#pragma once
// The junk rules, compiled in: the categories of the junk list, where each one looks, what its
// items are called and what is ticked by default. The scanner walks by these tables; Auto Clean
// cleans only what they tick by default.
//
// Every path here is relative to the scanned account's home folder.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/cleaning/JunkCategory.hpp"
#include "kit/cleaning/JunkKinds.hpp"

namespace brimstell {

// The category names, which are also their identities.
namespace junk {
inline constexpr std::string_view browserCaches = "Browser Caches";
inline constexpr std::string_view websiteOfflineData = "Website Offline Data";
inline constexpr std::string_view appUpdates = "App Updates";
inline constexpr std::string_view creativeApps = "Creative Apps";
inline constexpr std::string_view musicAndChat = "Music & Chat";
inline constexpr std::string_view macOSCaches = "macOS Caches";
inline constexpr std::string_view otherAppCaches = "Other App Caches";
inline constexpr std::string_view iosBackups = "iOS Backups";
inline constexpr std::string_view iosUpdates = "iOS Updates";
inline constexpr std::string_view mailAttachments = "Mail Attachments";
inline constexpr std::string_view logs = "Logs";
inline constexpr std::string_view cloudStorage = "Cloud Storage";
inline constexpr std::string_view installers = "Installers";
inline constexpr std::string_view trash = "Trash";
inline constexpr std::string_view xcode = "Xcode";
inline constexpr std::string_view packageCaches = "Package Caches";
inline constexpr std::string_view otherDeveloperCaches = "Other Developer Caches";
inline constexpr std::string_view oldNodeModules = "Old node_modules";
}  // namespace junk

// One category as the list shows it before anything is found.
struct CategoryRule {
    std::string_view name;
    std::string_view icon;
    std::string_view note;
    bool tickedByDefault;
    CacheKind group;
};

// A browser built on Chromium, by its folder under Library/Application Support.
struct ChromiumBrowser {
    std::string_view name;    // display name, starts the labels of its items
    std::string_view folder;  // below Library/Application Support
};

// A folder inside a browser profile that holds offline website data.
struct OfflineDataFolder {
    std::string_view path;         // below the profile
    std::string_view labelSuffix;  // follows the browser's name in the label
};

struct PackageLabel {
    std::string_view folder;  // name of the folder in Library/Caches, lower case
    std::string_view label;
};

// A cache or log folder of a cloud-sync app. The glob's components ending in "*" match entries of
// the folder above by the text before the "*" (see JunkCatalogue::expandCloudGlob).
struct CloudRule {
    std::string_view label;
    std::string_view glob;
    bool flag;  // set on the OneDrive container rules; carried as it stands
};

struct DeveloperPlace {
    std::string_view path;
    std::string_view label;
    DevKind kind;
    bool tickedByDefault;  // becomes the item's `selected`
};

// A folder of Xcode's device support files; each version folder inside is one item.
struct DeviceSupportPlatform {
    std::string_view folder;  // below Library/Developer/Xcode
    std::string_view word;    // starts the item's label
};

struct JunkCatalogue {
    // Folders.
    static constexpr std::string_view cachesFolder = "Library/Caches";
    static constexpr std::string_view applicationSupport = "Library/Application Support";
    static constexpr std::string_view iosBackupsFolder = "Library/Application Support/MobileSync/Backup";
    static constexpr std::string_view mailDownloadsFolder =
        "Library/Containers/com.apple.mail/Data/Library/Mail Downloads";
    static constexpr std::string_view logsFolder = "Library/Logs";
    static constexpr std::string_view downloadsFolder = "Downloads";
    static constexpr std::string_view trashFolder = ".Trash";
    static constexpr std::string_view deviceSupportFolder = "Library/Developer/Xcode";

    // The keys of an iOS backup's Info.plist that give its label and the date beside it.
    static constexpr std::string_view backupNameKey = "Device Name";
    static constexpr std::string_view backupDateKey = "Last Backup Date";

    // Library/Caches/Google holds more than Chrome's cache, and its label says so.
    static constexpr std::string_view googleCacheFolder = "Google";
    static constexpr std::string_view googleLabel = "Google (Chrome and other Google apps)";

    // Library/Caches folders whose names begin with this (any case) belong to Xcode.
    static constexpr std::string_view xcodeCachePrefix = "com.apple.dt.";

    // node_modules folders count when their project has been untouched this many days.
    static constexpr int nodeModulesDays = 90;
    static constexpr std::string_view nodeModulesFolder = "node_modules";
    static constexpr std::string_view untouchedSince = " · untouched since ";

    // The fourteen categories in the order the list shows them, and the four developer ones.
    static std::span<const CategoryRule> categories();
    static std::span<const CategoryRule> developerCategories();
    // Either kind by name; null for a name that is neither (such as the helper's categories).
    static const CategoryRule* findCategory(std::string_view name);
    // An empty category as the rule describes it, ticked as by default, not needing the helper.
    static JunkCategory makeCategory(const CategoryRule& rule);
    // The names the default ticking leaves unticked.
    static std::span<const std::string_view> untickedByDefault();
    // Ticks every category, then unticks those named in untickedByDefault().
    static void defaultTicking(std::vector<JunkCategory>& categories);

    // Browser caches and offline data.
    static std::span<const ChromiumBrowser> chromiumBrowsers();
    static bool isProfileName(std::string_view folderName);
    static std::span<const std::string_view> profileCacheFolders();
    static std::span<const std::string_view> topLevelCacheFolders();
    static std::span<const OfflineDataFolder> offlineDataFolders();

    // Classes of Library/Caches folders, tried in this order.
    static std::span<const std::string_view> browserPrefixes();
    static std::span<const std::string_view> updaterSubstrings();
    static std::span<const std::string_view> creativePrefixes();
    static std::span<const std::string_view> mediaPrefixes();
    static std::span<const std::string_view> developerPrefixes();
    static std::span<const std::string_view> systemPrefixes();
    static std::span<const PackageLabel> packageLabels();

    // The class of a Library/Caches folder: its lower-cased name against the browser prefixes,
    // the updater substrings, then the creative, media, developer and system prefixes; the first
    // that matches wins, else other.
    static CacheKind classify(std::string_view folderName);
    static bool isXcodeCache(std::string_view folderName);
    // The package manager's name for a known package-cache folder (compared in lower case).
    static std::optional<std::string> packageLabel(std::string_view folderName);
    // What the list shows for a Library/Caches folder: the Google label for "Google", else the
    // package label, else the folder's own name.
    static std::string cacheLabel(std::string_view folderName);
    // The category a Library/Caches folder is listed under.
    static std::string_view cacheCategory(std::string_view folderName);

    // Cloud-sync apps' caches and logs, in order.
    static std::span<const CloudRule> cloudRules();
    // The existing paths a cloud rule's glob stands for below home, each match's path being home,
    // "/" and the matched names. Symbolic links are neither followed nor listed: a component that
    // is a link, or a match that is one, gives nothing. Hidden entries match a "*". Components
    // "." and empty ones are skipped; a glob with ".." gives nothing. Matches of one "*" come in
    // byte order of their names.
    static std::vector<std::string> expandCloudGlob(const std::string& home, std::string_view glob);

    static std::span<const std::string_view> iosUpdateFolders();
    static std::span<const std::string_view> installerExtensions();
    // True when the name's extension (after its last ".", in any case) is an installer's; a name
    // that is only a dot and an extension (".dmg") has none.
    static bool isInstaller(std::string_view fileName);

    static std::span<const DeveloperPlace> developerPlaces();
    static std::span<const DeviceSupportPlatform> deviceSupportPlatforms();
    // "iOS device support · 17.4 (21E219)".
    static std::string deviceSupportLabel(const DeviceSupportPlatform& platform, std::string_view version);
    // The developer category a group's items are listed under.
    static std::string_view developerCategory(DevKind kind);
};

}  // namespace brimstell
