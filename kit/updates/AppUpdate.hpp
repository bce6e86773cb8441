#pragma once
// One update that is available for an installed app or a Homebrew cask.

#include <optional>
#include <string>
#include <string_view>

#include "kit/updates/AppBundle.hpp"
#include "kit/updates/AppcastItem.hpp"

namespace brimstell {

struct AppUpdate {
    enum class Source { sparkle, appStore, homebrew };

    std::string name;                     // what people see
    Source source = Source::sparkle;
    std::optional<AppBundle> app;         // absent for Homebrew casks
    std::string installed;                // the installed version, as shown
    std::string available;                // the new version, as shown
    std::optional<AppcastItem> item;      // feed updates only
    std::optional<std::string> storeURL;  // App Store updates only
    std::optional<std::string> cask;      // Homebrew updates only

    // "Sparkle", "App Store", "Homebrew".
    static std::string_view label(Source source);
    // The source's label, "|", then the app's path, else the cask, else the name ("Homebrew|firefox").
    std::string id() const;
};

}  // namespace brimstell
