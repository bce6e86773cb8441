#pragma once
// Registrations with ServiceManagement's app service on a Mac: the agent's LaunchAgent and the root
// helper's LaunchDaemon, whose property lists lie in the app bundle. Built only on macOS.

#include <memory>
#include <string>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

enum class MacServiceKind { agent, daemon };

// A registrar for the property list plistName; tooOld is the sentence given where the system lacks
// the app-service interface (before macOS 13).
std::shared_ptr<quorv::ServiceRegistrar> makeMacAppService(MacServiceKind kind, const std::string& plistName,
                                                           const std::string& tooOld);

}  // namespace brimstell
