#pragma once
// Builds the host an executable runs against, from its environment, with this platform's backends.

#include <map>
#include <memory>
#include <string>

#include "support/host/Host.hpp"

namespace brimstell {

// BRIMSTELL_ROOT (a folder) with BRIMSTELL_PLATFORM=mac runs against a sandbox Mac;
// BRIMSTELL_OUTBOX (a file) sends notifications there as JSON lines.
std::shared_ptr<quorv::Host> makeHost(const std::map<std::string, std::string>& environment);

// makeHost over the process's own environment, installed as the process host.
void installProcessHost();

}  // namespace brimstell
