#pragma once

#include <CLI/CLI.hpp>

namespace cli {

// Each group adds its sub-commands; a command's exit status goes into exitCode.
void addAgentCommands(CLI::App& app, int& exitCode);
void addSettingsCommands(CLI::App& app, int& exitCode);
void addDemoCommand(CLI::App& app, int& exitCode);
void addHelperCommands(CLI::App& app, int& exitCode);
void addFilesCommands(CLI::App& app, int& exitCode);
void addJunkCommands(CLI::App& app, int& exitCode);
void addAutoCleanCommands(CLI::App& app, int& exitCode);

}  // namespace cli
