#pragma once
// How the developer tools are found and started: the first of a tool's usual places that holds
// an executable, run with a fixed search path so that a tool finds its own helpers the same way
// whatever started us.

#include <optional>
#include <string>
#include <vector>

namespace brimstell {

// What a tool printed and whether it ended well within its time.
struct ToolRun {
    bool ok = false;
    std::string output;
};

struct DeveloperTools {
    // The search path every developer tool runs with.
    static std::string searchPath();
    // The first executable of places (system paths; "~/" at the start means the home folder),
    // as a location through the host; none when no place holds one.
    static std::optional<std::string> firstPresent(const std::vector<std::string>& places);
    // Runs program (a location) with arguments and the extra variables, the search path set.
    static ToolRun run(const std::string& program, const std::vector<std::string>& arguments,
                       const std::vector<std::pair<std::string, std::string>>& variables, double timeout);

    static constexpr const char* didntWork = "That didn't work";
    static constexpr const char* notTrashed = "This doesn't go to the Trash.";
};

}  // namespace brimstell
