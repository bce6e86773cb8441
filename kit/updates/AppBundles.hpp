#pragma once
// The installed apps: found in /Applications and ~/Applications (and one level of sub-folders
// such as Utilities), each read from its Contents/Info.plist.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/updates/AppBundle.hpp"

namespace brimstell {

struct AppBundles {
    // Every app found, sorted by name without regard to case; Apple's own ("com.apple.…") only
    // when includeApple is set. The same identifier found twice is listed twice.
    static std::vector<AppBundle> all(bool includeApple);
    // The app at url; nullopt when its Info.plist can't be read, has no identifier, or the app is
    // Apple's and includeApple is not set.
    static std::optional<AppBundle> read(const std::string& url, bool includeApple);

    // The two places all() looks in, as locations.
    static std::vector<std::string> places();
    // The ".app" entries of places: at the top of each, and in its sub-folders one level down.
    // An app's inside is never searched; other packages only when enterPackages is set. A place
    // or folder that can't be listed gives nothing.
    static std::vector<std::string> locations(const std::vector<std::string>& places, bool enterPackages);

    // The feed address of an Info.plist's SUFeedURL: trimmed of white space at both ends, and
    // kept only when it is an https address.
    static std::optional<std::string> httpsFeed(std::string_view text);
    // Whether a folder with this name is a package (a bundle people see as one file).
    static bool isPackageName(std::string_view name);
    // Whether the name has the extension "app" (".app" alone is a hidden name, no extension).
    static bool isAppName(std::string_view name);

    // Info.plist files larger than this are not read.
    static constexpr std::size_t maxInfoPlistBytes = 4u << 20;
};

}  // namespace brimstell
