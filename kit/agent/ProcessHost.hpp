#pragma once
// Builds the host an executable runs against, from its environment, with this platform's backends.

#include <map>
#include <memory>
#include <string>

#include "support/host/Host.hpp"

namespace brimstell {

// BRIMSTELL_ROOT (a folder) with BRIMSTELL_PLATFORM=mac runs against a sandbox Mac;
// BRIMSTELL_OUTBOX (a file) sends notifications there as JSON lines; in a sandbox,
// BRIMSTELL_HELPER_SOCKET (an absolute path) reaches a root helper daemon on that socket instead of
// the in-process one.
std::shared_ptr<quorv::Host> makeHost(const std::map<std::string, std::string>& environment);

// makeHost over the process's own environment, installed as the process host.
void installProcessHost();

}  // namespace brimstell
