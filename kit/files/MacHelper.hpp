#pragma once
// The root helper on a Mac: its XPC channel and its LaunchDaemon registration. Built only on macOS.

#include <memory>

#include "support/host/HelperTransport.hpp"

namespace brimstell {

// An XPC connection to the Mach service HelperInfo::label (AdminXPC.mm).
std::shared_ptr<quorv::HelperTransport> makeXPCHelperTransport();
// Opens the Login Items page of System Settings, where a daemon is approved (MacAppService.mm).
void openLoginItemsSettings();

}  // namespace brimstell
