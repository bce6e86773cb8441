#pragma once
// The developer page on the command line.

#include "cli/Output.hpp"
#include "kit/developer/DeveloperModel.hpp"

namespace cli {

void printDeveloper(const brimstell::DeveloperModel& model);
Json developerJson(const brimstell::DeveloperModel& model);

}  // namespace cli
