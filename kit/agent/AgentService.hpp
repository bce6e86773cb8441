#pragma once
// Ties the user's "backgroundChecks" switch to the agent's registration with the system's service
// manager (launchd on a Mac, the systemd user manager on Linux, a recorded state in sandboxes).
//
// The state people see is always read back from the registrar, never inferred from the switch.

#include <optional>
#include <string>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

struct AgentService {
    // The settings key of the switch. Opt-out: absent, or not a Boolean, means on.
    static constexpr const char* key = "backgroundChecks";

    // The switch as stored in the shared settings.
    static bool isOn();

    // True exactly when the registration waits for the user: the agent was switched off in the
    // system's login-items settings, or has not been approved yet.
    static bool blockedInSettings();

    // Brings the registration in line with the switch. Registers only from "not registered" or
    // "not found" (a pending approval is left alone); unregisters only from "enabled". Returns the
    // service manager's sentence when it refused (the switch keeps its value either way), else
    // nullopt; the agent itself ignores it, the command line says it.
    static std::optional<std::string> apply();

    // The current host's registrar status; notFound when the host has no registrar.
    static quorv::ServiceStatus status();

    // "not registered", "enabled", "requires approval", "not found".
    static const char* statusText(quorv::ServiceStatus status);
};

}  // namespace brimstell
