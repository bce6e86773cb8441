#pragma once
// The root helper on a Mac: its XPC channel and its LaunchDaemon registration. Built only on macOS.

#include <memory>

#include "support/host/HelperTransport.hpp"
#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

// An XPC connection to the Mach service HelperInfo::label (AdminXPC.mm).
std::shared_ptr<quorv::HelperTransport> makeXPCHelperTransport();
// The ServiceManagement daemon service for HelperInfo::plistName (MacHelperService.mm).
std::shared_ptr<quorv::ServiceRegistrar> makeMacHelperService();
// Opens the Login Items page of System Settings, where a daemon is approved.
void openLoginItemsSettings();

}  // namespace brimstell
