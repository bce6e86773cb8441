#pragma once

#include <string>

#include "kit/agent/Agent.hpp"

namespace brimstell {

// The short account of a run, as printed on a terminal.
std::string reportText(const AgentReport& report);

}  // namespace brimstell
