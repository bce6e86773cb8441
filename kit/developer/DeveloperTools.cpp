#include "kit/developer/DeveloperTools.hpp"

#include <unistd.h>

#include "support/host/Host.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

std::string DeveloperTools::searchPath() {
    // The value a tool is handed, not a place we open: it names the real system's folders.
    // Linux keeps Homebrew in a place of its own.
    if (!quorv::host().isMac()) {
        return "/home/linuxbrew/.linuxbrew/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
    }
    return "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
}

std::optional<std::string> DeveloperTools::firstPresent(const std::vector<std::string>& places) {
    const auto& h = quorv::host();
    for (const auto& place : places) {
        const std::string location = place.starts_with("~/") ? h.inHome(place.substr(2)) : h.path(place);
        if (::access(location.c_str(), X_OK) == 0) return location;
    }
    return std::nullopt;
}

ToolRun DeveloperTools::run(const std::string& program, const std::vector<std::string>& arguments,
                            const std::vector<std::pair<std::string, std::string>>& variables, double timeout) {
    quorv::ShellOptions options;
    options.environment["PATH"] = searchPath();
    for (const auto& [name, value] : variables) options.environment[name] = value;
    options.timeLimit = timeout;
    auto r = quorv::Shell::run(program, arguments, options);
    return {r.succeeded(), std::move(r.output)};
}

}  // namespace brimstell
