#pragma once
// Homebrew: where it is, how it runs, and what its answers say.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/developer/BrewPackage.hpp"
#include "kit/developer/DeveloperTools.hpp"

namespace brimstell {

struct Brew {
    // The brew command: the first executable of /opt/homebrew/bin/brew, /usr/local/bin/brew
    // (and on Linux /home/linuxbrew/.linuxbrew/bin/brew); none when Homebrew isn't installed.
    static std::optional<std::string> location();
    // Runs brew with its auto-update, hints and clean-up switched off; not ok without brew.
    static ToolRun run(const std::vector<std::string>& arguments, double timeout = defaultTimeout);

    // Whether a name may be handed to brew: letters, digits and "@._+/-" only, not starting with "-".
    static bool validName(std::string_view name);

    // The installed packages of `brew info --installed --json=v2`, formulae then casks; none when
    // it isn't that JSON.
    static std::vector<BrewPackage> parseInfo(std::string_view text);
    // The paths and sizes after "Would remove:" in `brew cleanup --dry-run`.
    static std::vector<BrewCleanupItem> parseCleanup(std::string_view text);
    // The names after the "==> Would autoremove" line of `brew autoremove --dry-run`.
    static std::vector<std::string> parseAutoremove(std::string_view text);
    // "41.9MB", "2,401KB", "12B" as Homebrew writes sizes (binary multiples); none otherwise.
    static std::optional<std::int64_t> parseSize(std::string_view text);

    // The arguments that update or remove one package; none for a name brew must not see.
    static std::optional<std::vector<std::string>> upgradeArguments(const BrewPackage& package);
    static std::optional<std::vector<std::string>> uninstallArguments(const BrewPackage& package);

    static constexpr double defaultTimeout = 60;
    // Updating or removing a package downloads and builds: it may take a while.
    static constexpr double changeTimeout = 1800;
    static constexpr const char* notInstalled = "Homebrew isn't installed";
};

}  // namespace brimstell
