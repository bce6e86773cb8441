#include "kit/cleaning/LinuxJunkCatalogue.hpp"

#include <algorithm>

namespace brimstell {

namespace {

// Thumbnails and the sandboxed apps' caches are made again when needed: ticked. The Trash stays
// unticked through JunkCatalogue's default ticking, as on a Mac.
constexpr CategoryRule kCategories[] = {
    {junk::browserCaches, "globe", "Logins, history and bookmarks are kept", true, CacheKind::browser},
    {junk::thumbnails, "photo", "Previews of pictures and documents · made again when shown", true, CacheKind::other},
    {junk::musicAndChat, "music.note", "Streaming and media caches", true, CacheKind::media},
    {junk::otherAppCaches, "archivebox", "App caches", true, CacheKind::other},
    {junk::sandboxedApps, "square.stack.3d.up", "Caches of Flatpak and Snap apps · their data is kept", true,
     CacheKind::other},
    {junk::logs, "doc.text", "Logs of apps and the desktop session", true, CacheKind::other},
    {junk::installers, "arrow.down.circle", "Packages, AppImages and archives in Downloads", true, CacheKind::other},
    {junk::trash, "trash", "Already in the Trash", false, CacheKind::other},
};

// Firefox keeps only its cache in the cache folder (profiles live in ~/.mozilla), and so does
// every Chromium-family browser (profiles, logins and history live in ~/.config): the whole
// entry may go.
constexpr CacheEntryRule kCacheEntries[] = {
    {"mozilla", junk::browserCaches, "Firefox"},
    {"google-chrome", junk::browserCaches, "Chrome"},
    {"google-chrome-beta", junk::browserCaches, "Chrome Beta"},
    {"google-chrome-unstable", junk::browserCaches, "Chrome Dev"},
    {"chromium", junk::browserCaches, "Chromium"},
    {"BraveSoftware", junk::browserCaches, "Brave"},
    {"microsoft-edge", junk::browserCaches, "Edge"},
    {"microsoft-edge-beta", junk::browserCaches, "Edge Beta"},
    {"microsoft-edge-dev", junk::browserCaches, "Edge Dev"},
    {"vivaldi", junk::browserCaches, "Vivaldi"},
    {"opera", junk::browserCaches, "Opera"},
    {"yandex-browser", junk::browserCaches, "Yandex"},
    {"thumbnails", junk::thumbnails, "Thumbnails"},
    {"spotify", junk::musicAndChat, "Spotify"},
    {"JetBrains", junk::otherDeveloperCaches, "JetBrains IDEs"},
    {"ms-playwright", junk::otherDeveloperCaches, "Playwright browsers"},
    {"node-gyp", junk::otherDeveloperCaches, "node-gyp headers"},
    {"typescript", junk::otherDeveloperCaches, "TypeScript"},
    {"deno", junk::otherDeveloperCaches, "Deno"},
};

constexpr ConfigApp kConfigApps[] = {
    {"VS Code", "Code", junk::otherDeveloperCaches},
    {"VSCodium", "VSCodium", junk::otherDeveloperCaches},
    {"Cursor", "Cursor", junk::otherDeveloperCaches},
    {"Slack", "Slack", junk::musicAndChat},
    {"Discord", "discord", junk::musicAndChat},
    {"Signal", "Signal", junk::musicAndChat},
    {"Element", "Element", junk::musicAndChat},
    {"Teams", "teams-for-linux", junk::musicAndChat},
    {"Obsidian", "obsidian", junk::otherAppCaches},
};

constexpr std::string_view kConfigAppCaches[] = {"Cache", "Code Cache", "GPUCache", "CachedData", "DawnCache"};

constexpr SandboxRule kSandboxRules[] = {
    {".var/app", "cache", "Flatpak"},
    {"snap", "common/.cache", "Snap"},
};

constexpr std::string_view kHomeLogFiles[] = {".xsession-errors", ".xsession-errors.old"};

// Linux packages and the archive types; "gz", "xz", "bz2" and "zst" stand for the compressed tar
// files they end ("x.tar.gz").
constexpr std::string_view kInstallerExtensions[] = {"deb", "rpm", "appimage", "flatpakref", "zip", "xip",
                                                     "tar", "tgz", "gz",  "xz",  "bz2", "zst", "7z"};

// The Mac table's rows that mean the same on Linux, then the places only Linux tools use. The
// Maven repository also holds what `mvn install` put there from the person's own projects,
// which no server gives back: listed, not ticked, like the pnpm store that projects link into.
constexpr LinuxPlace kDeveloperPlaces[] = {
    {LinuxBase::home, ".npm/_cacache", "npm", DevKind::packages, true},
    {LinuxBase::home, ".gradle/caches", "Gradle", DevKind::packages, true},
    {LinuxBase::home, ".cargo/registry/cache", "Cargo downloaded crates", DevKind::packages, true},
    {LinuxBase::cache, "pip", "pip", DevKind::packages, true},
    {LinuxBase::cache, "yarn", "Yarn", DevKind::packages, true},
    {LinuxBase::home, ".m2/repository", "Maven repository", DevKind::packages, false},
    {LinuxBase::data, "pnpm/store", "pnpm store (shared by projects)", DevKind::packages, false},
    {LinuxBase::cache, "go-build", "Go build cache", DevKind::other, true},
    {LinuxBase::cache, "huggingface", "Hugging Face models", DevKind::other, false},
};

// ASCII only: names are bytes, and a byte above 0x7f must stay what it is.
std::string lowered(std::string_view text) {
    std::string out(text);
    for (auto& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

}  // namespace

std::span<const CategoryRule> LinuxJunkCatalogue::categories() { return kCategories; }

const CategoryRule* LinuxJunkCatalogue::findCategory(std::string_view name) {
    for (const auto& rule : kCategories) {
        if (rule.name == name) return &rule;
    }
    for (const auto& rule : JunkCatalogue::developerCategories()) {
        if (rule.name == name) return &rule;
    }
    return nullptr;
}

std::span<const CacheEntryRule> LinuxJunkCatalogue::cacheEntries() { return kCacheEntries; }

const CacheEntryRule* LinuxJunkCatalogue::cacheEntry(std::string_view folderName) {
    for (const auto& rule : kCacheEntries) {
        if (rule.folder == folderName) return &rule;
    }
    return nullptr;
}

bool LinuxJunkCatalogue::isDeveloperCacheEntry(std::string_view folderName) {
    return std::any_of(std::begin(kDeveloperPlaces), std::end(kDeveloperPlaces), [&](const LinuxPlace& place) {
        if (place.base != LinuxBase::cache) return false;
        return place.path.substr(0, place.path.find('/')) == folderName;
    });
}

std::span<const ConfigApp> LinuxJunkCatalogue::configApps() { return kConfigApps; }
std::span<const std::string_view> LinuxJunkCatalogue::configAppCaches() { return kConfigAppCaches; }
std::span<const SandboxRule> LinuxJunkCatalogue::sandboxRules() { return kSandboxRules; }
std::span<const std::string_view> LinuxJunkCatalogue::homeLogFiles() { return kHomeLogFiles; }

bool LinuxJunkCatalogue::isJournal(std::string_view fileName) {
    return fileName.ends_with(".journal") || fileName.ends_with(".journal~");
}

std::span<const std::string_view> LinuxJunkCatalogue::installerExtensions() { return kInstallerExtensions; }

bool LinuxJunkCatalogue::isInstaller(std::string_view fileName) {
    const auto dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return false;
    const std::string extension = lowered(fileName.substr(dot + 1));
    return std::find(std::begin(kInstallerExtensions), std::end(kInstallerExtensions), extension) !=
           std::end(kInstallerExtensions);
}

std::span<const LinuxPlace> LinuxJunkCatalogue::developerPlaces() { return kDeveloperPlaces; }

}  // namespace brimstell
