#include "kit/cleaning/JunkCatalogue.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "kit/cleaning/FolderListing.hpp"
#include "support/posix/UniqueFd.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

namespace {

using namespace std::string_view_literals;

constexpr CategoryRule kCategories[] = {
    {junk::browserCaches, "globe", "Logins, history and bookmarks are kept", true, CacheKind::browser},
    {junk::websiteOfflineData, "wifi.slash", "Service worker storage · quit browsers first", false, CacheKind::browser},
    {junk::appUpdates, "arrow.triangle.2.circlepath", "Installed update files", true, CacheKind::updater},
    {junk::creativeApps, "paintbrush", "Media and render caches", false, CacheKind::creative},
    {junk::musicAndChat, "music.note", "Streaming and media caches", true, CacheKind::media},
    {junk::macOSCaches, "apple.logo", "System service caches", true, CacheKind::system},
    {junk::otherAppCaches, "archivebox", "App caches", true, CacheKind::other},
    {junk::iosBackups, "iphone", "iPhone and iPad backups on this Mac", false, CacheKind::other},
    {junk::iosUpdates, "arrow.down.app", "Downloaded iPhone and iPad software", true, CacheKind::other},
    {junk::mailAttachments, "paperclip", "Attachments opened from Mail", true, CacheKind::other},
    {junk::logs, "doc.text", "Logs and crash reports", true, CacheKind::other},
    {junk::cloudStorage, "icloud", "Caches and logs · synced files untouched", true, CacheKind::other},
    {junk::installers, "arrow.down.circle", "Disk images and archives in Downloads", true, CacheKind::other},
    {junk::trash, "trash", "Already in the Trash", false, CacheKind::other},
};

// The default ticking is a short list of exclusions, not a flag per category, so that a category
// added later is ticked unless someone decides otherwise.
constexpr std::string_view kUnticked[] = {junk::websiteOfflineData, junk::creativeApps, junk::iosBackups, junk::trash};

// The node_modules note carries the day limit, so it is made once from it.
const std::string& nodeModulesNote() {
    static const std::string note = "In projects untouched for " + std::to_string(JunkCatalogue::nodeModulesDays) +
                                    "+ days · npm install brings them back";
    return note;
}

std::span<const CategoryRule> developerTable() {
    static const CategoryRule table[] = {
        {junk::xcode, "hammer", "Build files and simulator caches · rebuilt when needed", true, CacheKind::developer},
        {junk::packageCaches, "shippingbox", "Downloaded packages · fetched again when needed", true, CacheKind::developer},
        {junk::otherDeveloperCaches, "wrench.and.screwdriver", "Editors, test browsers, runtimes", true,
         CacheKind::developer},
        {junk::oldNodeModules, "folder.badge.minus", nodeModulesNote(), true, CacheKind::developer},
    };
    return table;
}

constexpr ChromiumBrowser kBrowsers[] = {
    {"Chrome", "Google/Chrome"},
    {"Edge", "Microsoft Edge"},
    {"Brave", "BraveSoftware/Brave-Browser"},
    {"Arc", "Arc/User Data"},
    {"Vivaldi", "Vivaldi"},
    {"Opera", "com.operasoftware.Opera"},
    {"Chromium", "Chromium"},
};

constexpr std::string_view kProfileCaches[] = {"Code Cache", "GPUCache", "DawnWebGPUCache", "DawnGraphiteCache",
                                               "GrShaderCache"};
constexpr std::string_view kTopLevelCaches[] = {"GrShaderCache", "ShaderCache", "GraphiteDawnCache",
                                                "component_crx_cache"};

constexpr OfflineDataFolder kOfflineData[] = {
    {"Service Worker/CacheStorage", " · Offline site data"},
    {"Service Worker/ScriptCache", " · Offline site scripts"},
};

constexpr std::string_view kBrowserPrefixes[] = {
    "microsoft edge", "google", "firefox", "org.mozilla", "com.apple.safari", "bravesoftware", "arc",
    "company.thebrowser", "com.operasoftware", "vivaldi", "com.vivaldi", "com.microsoft.edgemac", "chromium",
    "com.google.chrome",
};

constexpr std::string_view kUpdaterSubstrings[] = {"updater", "shipit", "autoupdate"};

constexpr std::string_view kCreativePrefixes[] = {
    "com.adobe", "adobe", "csxs", "blender", "effectcraft", "com.sony.imaging", "autodesk", "com.autodesk",
    "maxon", "net.maxon", "com.blackmagic", "figma", "com.figma", "cavalry", "com.sidefx", "com.apple.finalcut",
    "com.apple.logic", "com.native-instruments", "ableton", "com.ableton", "com.battleaxe", "com.maxon",
    "capture one", "com.phaseone",
};

constexpr std::string_view kMediaPrefixes[] = {
    "com.spotify", "spotify", "discord", "com.hnc.discord", "slack", "com.tinyspeck", "com.microsoft.teams",
    "us.zoom", "whatsapp", "net.whatsapp", "telegram", "ru.keepcoder", "com.apple.music", "com.apple.itunes",
    "com.apple.tv", "com.apple.podcasts", "signal", "org.whispersystems",
};

constexpr std::string_view kDeveloperPrefixes[] = {
    "pip", "homebrew", "pnpm", "node-gyp", "typescript", "dotslash", "yarn", "com.apple.dt.", "jetbrains",
    "claude-cli", "go-build", "cocoapods", "org.cocoapods", "ms-playwright", "puppeteer", "electron", "deno",
    "bun", "cargo", "npm", "com.microsoft.vscode", "org.swift", "carthage",
};

constexpr std::string_view kSystemPrefixes[] = {"com.apple.", "geoservices", "cloudkit", "passkit", "familycircled"};

constexpr PackageLabel kPackageLabels[] = {
    {"org.swift.swiftpm", "Swift Package Manager"},
    {"cocoapods", "CocoaPods"},
    {"org.cocoapods", "CocoaPods"},
    {"yarn", "Yarn"},
    {"pnpm", "pnpm"},
    {"pip", "pip"},
    {"homebrew", "Homebrew downloads"},
    {"go-build", "Go build cache"},
    {"carthage", "Carthage"},
    {"org.carthage", "Carthage"},
    {"cargo", "Cargo"},
    {"npm", "npm"},
    {"node-gyp", "node-gyp headers"},
};

constexpr CloudRule kCloudRules[] = {
    {"Google Drive · Logs", "Library/Application Support/Google/DriveFS/Logs", false},
    {"Google Drive · Crash reports", "Library/Application Support/Google/DriveFS/Crashpad", false},
    {"Google Drive · Web cache", "Library/Application Support/Google/DriveFS/cef_cache/Cache", false},
    {"Google Drive · Web code cache", "Library/Application Support/Google/DriveFS/cef_cache/Code Cache", false},
    {"Google Drive · Thumbnails", "Library/Application Support/Google/DriveFS/*/thumbnails_cache", false},
    {"OneDrive · Sync logs", "Library/Group Containers/UBF8T346G9.OneDriveStandaloneSuite/FileProviderLogs", false},
    {"OneDrive · Cache", "Library/Containers/com.microsoft.OneDrive*/Data/Library/Caches", true},
    {"OneDrive · Logs", "Library/Containers/com.microsoft.OneDrive*/Data/Library/Logs", true},
    {"Dropbox · Cache", "Dropbox*/.dropbox.cache", false},
    {"Dropbox · Cache", "Library/CloudStorage/Dropbox*/.dropbox.cache", false},
    {"MEGA · Logs", "Library/Application Support/Mega Limited/MEGAsync/logs", false},
    {"MEGA · Local rubbish bin", "MEGA*/.debris", false},
    {"Box · Logs", "Library/Application Support/Box/Box/logs", false},
};

constexpr std::string_view kIosUpdateFolders[] = {"Library/iTunes/iPhone Software Updates",
                                                  "Library/iTunes/iPad Software Updates"};

constexpr std::string_view kInstallerExtensions[] = {"dmg", "pkg", "zip", "xip"};

constexpr DeveloperPlace kDeveloperPlaces[] = {
    {"Library/Developer/Xcode/DerivedData", "Xcode · DerivedData (build files)", DevKind::xcode, true},
    {"Library/Developer/CoreSimulator/Caches", "Simulator caches", DevKind::xcode, true},
    {"Library/Developer/Xcode/Archives", "Xcode Archives", DevKind::xcode, false},
    {".npm/_cacache", "npm", DevKind::packages, true},
    {".gradle/caches", "Gradle", DevKind::packages, true},
    {".cargo/registry/cache", "Cargo downloaded crates", DevKind::packages, true},
    {".cache/pip", "pip", DevKind::packages, true},
    {"Library/pnpm/store", "pnpm store (shared by projects)", DevKind::packages, false},
    {".cache/huggingface", "Hugging Face models", DevKind::other, false},
};

constexpr DeviceSupportPlatform kDeviceSupport[] = {
    {"iOS DeviceSupport", "iOS"},
    {"watchOS DeviceSupport", "watchOS"},
    {"tvOS DeviceSupport", "tvOS"},
    {"visionOS DeviceSupport", "visionOS"},
    {"macOS DeviceSupport", "macOS"},
};

// ASCII only: folder names are bytes, and a byte above 0x7f must stay what it is.
std::string lowered(std::string_view text) {
    std::string out(text);
    for (auto& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

bool startsWithAny(std::string_view name, std::span<const std::string_view> prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&](std::string_view p) { return name.starts_with(p); });
}

bool containsAny(std::string_view name, std::span<const std::string_view> parts) {
    return std::any_of(parts.begin(), parts.end(),
                       [&](std::string_view p) { return name.find(p) != std::string_view::npos; });
}

// --- Cloud globs ---------------------------------------------------------------------------------

constexpr int kOpenFolder = quorv::LinkSafe::folderFlags;

// The names in the folder that begin with prefix, in byte order, "." and ".." left out.
std::vector<std::string> namesIn(int folderFd, std::string_view prefix) {
    std::vector<std::string> names;
    for (auto& entry : FolderListing::list(folderFd)) {
        if (entry.name.starts_with(prefix)) names.push_back(std::move(entry.name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string_view> componentsOf(std::string_view glob) {
    std::vector<std::string_view> parts;
    while (!glob.empty()) {
        const auto slash = glob.find('/');
        const std::string_view part = glob.substr(0, slash);
        if (!part.empty() && part != ".") parts.push_back(part);
        if (slash == std::string_view::npos) break;
        glob.remove_prefix(slash + 1);
    }
    return parts;
}

// Adds the matches of parts[index...] below the folder open as folderFd at path. Depth first, so
// no more folders are open at once than the glob has components.
void expand(int folderFd, const std::string& path, const std::vector<std::string_view>& parts, std::size_t index,
            std::vector<std::string>& found) {
    const std::string_view part = parts[index];
    const bool last = index + 1 == parts.size();
    std::vector<std::string> names;
    if (part.ends_with('*')) {
        names = namesIn(folderFd, part.substr(0, part.size() - 1));
    } else {
        names.emplace_back(part);
    }
    for (const auto& name : names) {
        std::string below = path == "/" ? "/" + name : path + "/" + name;
        if (last) {
            struct stat st{};
            if (::fstatat(folderFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISLNK(st.st_mode)) {
                found.push_back(std::move(below));
            }
        } else {
            quorv::UniqueFd fd(::openat(folderFd, name.c_str(), kOpenFolder));
            if (fd) expand(fd.get(), below, parts, index + 1, found);
        }
    }
}

}  // namespace

std::span<const CategoryRule> JunkCatalogue::categories() { return kCategories; }
std::span<const CategoryRule> JunkCatalogue::developerCategories() { return developerTable(); }

const CategoryRule* JunkCatalogue::findCategory(std::string_view name) {
    for (const auto& rule : kCategories) {
        if (rule.name == name) return &rule;
    }
    for (const auto& rule : developerTable()) {
        if (rule.name == name) return &rule;
    }
    return nullptr;
}

JunkCategory JunkCatalogue::makeCategory(const CategoryRule& rule) {
    JunkCategory category;
    category.name = rule.name;
    category.icon = rule.icon;
    category.note = rule.note;
    category.enabled = rule.tickedByDefault;
    category.admin = false;
    category.group = rule.group;
    return category;
}

std::span<const std::string_view> JunkCatalogue::untickedByDefault() { return kUnticked; }

void JunkCatalogue::defaultTicking(std::vector<JunkCategory>& categories) {
    for (auto& category : categories) {
        category.enabled = std::find(std::begin(kUnticked), std::end(kUnticked), category.name) == std::end(kUnticked);
    }
}

std::span<const ChromiumBrowser> JunkCatalogue::chromiumBrowsers() { return kBrowsers; }

bool JunkCatalogue::isProfileName(std::string_view folderName) {
    return folderName == "Default" || folderName == "Guest Profile" || folderName.starts_with("Profile ");
}

std::span<const std::string_view> JunkCatalogue::profileCacheFolders() { return kProfileCaches; }
std::span<const std::string_view> JunkCatalogue::topLevelCacheFolders() { return kTopLevelCaches; }
std::span<const OfflineDataFolder> JunkCatalogue::offlineDataFolders() { return kOfflineData; }

std::span<const std::string_view> JunkCatalogue::browserPrefixes() { return kBrowserPrefixes; }
std::span<const std::string_view> JunkCatalogue::updaterSubstrings() { return kUpdaterSubstrings; }
std::span<const std::string_view> JunkCatalogue::creativePrefixes() { return kCreativePrefixes; }
std::span<const std::string_view> JunkCatalogue::mediaPrefixes() { return kMediaPrefixes; }
std::span<const std::string_view> JunkCatalogue::developerPrefixes() { return kDeveloperPrefixes; }
std::span<const std::string_view> JunkCatalogue::systemPrefixes() { return kSystemPrefixes; }
std::span<const PackageLabel> JunkCatalogue::packageLabels() { return kPackageLabels; }

CacheKind JunkCatalogue::classify(std::string_view folderName) {
    const std::string name = lowered(folderName);
    if (startsWithAny(name, kBrowserPrefixes)) return CacheKind::browser;
    if (containsAny(name, kUpdaterSubstrings)) return CacheKind::updater;
    if (startsWithAny(name, kCreativePrefixes)) return CacheKind::creative;
    if (startsWithAny(name, kMediaPrefixes)) return CacheKind::media;
    if (startsWithAny(name, kDeveloperPrefixes)) return CacheKind::developer;
    if (startsWithAny(name, kSystemPrefixes)) return CacheKind::system;
    return CacheKind::other;
}

bool JunkCatalogue::isXcodeCache(std::string_view folderName) {
    return lowered(folderName).starts_with(xcodeCachePrefix);
}

std::optional<std::string> JunkCatalogue::packageLabel(std::string_view folderName) {
    const std::string name = lowered(folderName);
    for (const auto& row : kPackageLabels) {
        if (row.folder == name) return std::string(row.label);
    }
    return std::nullopt;
}

std::string JunkCatalogue::cacheLabel(std::string_view folderName) {
    if (lowered(folderName) == lowered(googleCacheFolder)) return std::string(googleLabel);
    if (auto label = packageLabel(folderName)) return std::move(*label);
    return std::string(folderName);
}

std::string_view JunkCatalogue::cacheCategory(std::string_view folderName) {
    switch (classify(folderName)) {
        case CacheKind::browser: return junk::browserCaches;
        case CacheKind::updater: return junk::appUpdates;
        case CacheKind::creative: return junk::creativeApps;
        case CacheKind::media: return junk::musicAndChat;
        case CacheKind::developer: return isXcodeCache(folderName) ? junk::xcode : junk::otherDeveloperCaches;
        case CacheKind::system: return junk::macOSCaches;
        case CacheKind::other: return junk::otherAppCaches;
    }
    return junk::otherAppCaches;
}

std::span<const CloudRule> JunkCatalogue::cloudRules() { return kCloudRules; }

std::vector<std::string> JunkCatalogue::expandCloudGlob(const std::string& home, std::string_view glob) {
    std::vector<std::string> found;
    const auto parts = componentsOf(glob);
    if (parts.empty() || home.empty()) return found;
    if (std::find(parts.begin(), parts.end(), ".."sv) != parts.end()) return found;

    // The home folder itself is taken as given (it may be reached through a link); below it,
    // every folder is opened from its parent's descriptor without following a link.
    quorv::UniqueFd fd = quorv::LinkSafe::openFolder(home, true);
    if (!fd) return found;
    std::string base = home;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    expand(fd.get(), base, parts, 0, found);
    return found;
}

std::span<const std::string_view> JunkCatalogue::iosUpdateFolders() { return kIosUpdateFolders; }
std::span<const std::string_view> JunkCatalogue::installerExtensions() { return kInstallerExtensions; }

bool JunkCatalogue::isInstaller(std::string_view fileName) {
    const auto dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return false;
    const std::string extension = lowered(fileName.substr(dot + 1));
    return std::find(std::begin(kInstallerExtensions), std::end(kInstallerExtensions), extension) !=
           std::end(kInstallerExtensions);
}

std::span<const DeveloperPlace> JunkCatalogue::developerPlaces() { return kDeveloperPlaces; }
std::span<const DeviceSupportPlatform> JunkCatalogue::deviceSupportPlatforms() { return kDeviceSupport; }

std::string JunkCatalogue::deviceSupportLabel(const DeviceSupportPlatform& platform, std::string_view version) {
    std::string label(platform.word);
    label += " device support · ";
    label += version;
    return label;
}

std::string_view JunkCatalogue::developerCategory(DevKind kind) {
    switch (kind) {
        case DevKind::xcode: return junk::xcode;
        case DevKind::packages: return junk::packageCaches;
        case DevKind::other: return junk::otherDeveloperCaches;
    }
    return junk::otherDeveloperCaches;
}

}  // namespace brimstell
