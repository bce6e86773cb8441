#include "shared/helper/HelperInfo.hpp"

namespace brimstell::HelperInfo {

#ifndef __APPLE__
// Linux binaries carry no code signature; the macOS reading is in HelperInfoMac.mm.
std::optional<std::string> ownTeamID() { return std::nullopt; }
#endif

std::string clientRequirement(std::string_view team) {
    if (team.empty() || team.size() > 32) return "never";
    for (const char c : team) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (!plain) return "never";
    }
    return "anchor apple generic and identifier \"" + std::string(label) + "\" and certificate leaf[subject.OU] = \"" +
           std::string(team) + "\"";
}

}  // namespace brimstell::HelperInfo
