#pragma once
// Who the root helper is: its launchd label, the app allowed to call it, and the protocol version
// both sides compare.

#include <optional>
#include <string>
#include <string_view>

namespace brimstell::HelperInfo {

// launchd label of the helper daemon, also the name of its service.
inline constexpr std::string_view label = "com.quorv.brimstell.helper";
// The daemon's launchd property list inside the app bundle.
inline constexpr std::string_view plistName = "com.quorv.brimstell.helper.plist";
// Bundle identifier of the app that may call the helper.
inline constexpr std::string_view appIdentifier = "com.quorv.brimstell";
// Protocol version. The helper reports it; the caller compares it with its own.
inline constexpr std::string_view version = "4";

// The team identifier of this process's own code signature; nullopt when the process is not
// signed, any step fails, or on a platform without code signatures (Linux).
std::optional<std::string> ownTeamID();

// The code-signing requirement a helper must meet for a caller signed by team: Apple's chain,
// the helper's label as its identifier, and the same team. A team that isn't a team identifier
// (letters and digits, at most 32) would write into the requirement: it gets "never", which no
// helper meets.
std::string clientRequirement(std::string_view team);

}  // namespace brimstell::HelperInfo
