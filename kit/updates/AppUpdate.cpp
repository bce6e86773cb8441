#include "kit/updates/AppUpdate.hpp"

namespace brimstell {

std::string_view AppUpdate::label(Source source) {
    switch (source) {
        case Source::sparkle: return "Sparkle";
        case Source::appStore: return "App Store";
        case Source::homebrew: return "Homebrew";
    }
    return "Sparkle";
}

std::string AppUpdate::id() const {
    std::string key(label(source));
    key += '|';
    if (app) return key + app->url;
    if (cask) return key + *cask;
    return key + name;
}

}  // namespace brimstell
