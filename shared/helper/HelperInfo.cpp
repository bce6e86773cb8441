#include "shared/helper/HelperInfo.hpp"

namespace brimstell::HelperInfo {

#ifndef __APPLE__
// Linux binaries carry no code signature; the macOS reading is in HelperInfoMac.mm.
std::optional<std::string> ownTeamID() { return std::nullopt; }
#endif

}  // namespace brimstell::HelperInfo
