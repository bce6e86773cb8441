#pragma once
// What the junk scanner sorts things into. Kept apart from the scanner and from JunkCategory so
// that both can name them; JunkScanner carries them as JunkScanner::CacheKind and ::DevKind.

#include <string_view>

namespace brimstell {

// The class of a folder found in Library/Caches, in the order the classes are tried.
enum class CacheKind { browser, updater, creative, media, developer, system, other };

// The three developer groups.
enum class DevKind { xcode, packages, other };

constexpr std::string_view cacheKindName(CacheKind kind) {
    switch (kind) {
        case CacheKind::browser: return "browser";
        case CacheKind::updater: return "updater";
        case CacheKind::creative: return "creative";
        case CacheKind::media: return "media";
        case CacheKind::developer: return "developer";
        case CacheKind::system: return "system";
        case CacheKind::other: return "other";
    }
    return "other";
}

constexpr std::string_view devKindName(DevKind kind) {
    switch (kind) {
        case DevKind::xcode: return "xcode";
        case DevKind::packages: return "packages";
        case DevKind::other: return "other";
    }
    return "other";
}

}  // namespace brimstell
