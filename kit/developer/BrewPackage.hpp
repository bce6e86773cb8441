#pragma once
// One installed Homebrew package and what `brew cleanup` and `brew autoremove` would remove.

#include <cstdint>
#include <string>
#include <vector>

namespace brimstell {

struct BrewPackage {
    enum class Kind { formula, cask };
    Kind kind = Kind::formula;
    std::string name;                   // a formula's name, a cask's token
    std::string description;
    std::vector<std::string> versions;  // installed
    bool outdated = false;
    bool pinned = false;                // formulae only
    bool onRequest = true;              // installed by the user, not as a dependency; casks always
    std::string available;              // the newer version, when known
    std::int64_t bytes = 0;             // what its Cellar or Caskroom folder holds

    // "formula:jq", "cask:firefox".
    std::string id() const { return (kind == Kind::cask ? "cask:" : "formula:") + name; }
};

struct BrewCleanupItem {
    std::string path;
    std::int64_t bytes = 0;
};

struct BrewPreview {
    std::vector<BrewCleanupItem> oldVersions;  // what `brew cleanup` would remove
    std::vector<std::string> unusedDependencies;  // what `brew autoremove` would remove
    std::int64_t bytes() const {
        std::int64_t total = 0;
        for (const auto& item : oldVersions) total += item.bytes;
        return total;
    }
};

}  // namespace brimstell
