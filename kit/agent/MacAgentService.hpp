#pragma once
// The agent's registration on a Mac: the ServiceManagement app service for the LaunchAgent whose
// property list "com.quorv.brimstell.agent.plist" lies in the app bundle. Built only on macOS.

#include <memory>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

std::shared_ptr<quorv::ServiceRegistrar> makeMacAgentService();

}  // namespace brimstell
