#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace cli {

// A command of parent with a --json flag that sets json.
inline CLI::App* jsonCommand(CLI::App* parent, const std::string& name, const std::string& description, bool& json) {
    auto* command = parent->add_subcommand(name, description);
    command->add_flag("--json", json, "Print as JSON");
    return command;
}

// Each group adds its sub-commands; a command's exit status goes into exitCode.
void addAgentCommands(CLI::App& app, int& exitCode);
void addSettingsCommands(CLI::App& app, int& exitCode);
void addDemoCommand(CLI::App& app, int& exitCode);
void addHelperCommands(CLI::App& app, int& exitCode);
void addFilesCommands(CLI::App& app, int& exitCode);
void addJunkCommands(CLI::App& app, int& exitCode);
void addAutoCleanCommands(CLI::App& app, int& exitCode);
void addAppsCommands(CLI::App& app, int& exitCode);
void addLeftoversCommands(CLI::App& app, int& exitCode);
void addHealthCommand(CLI::App& app, int& exitCode);
void addUpdatesCommand(CLI::App& app, int& exitCode);
void addStartupCommands(CLI::App& app, int& exitCode);
void addDeveloperCommands(CLI::App& app, int& exitCode);
void addCloudCommands(CLI::App& app, int& exitCode);
void addSlowCommands(CLI::App& app, int& exitCode);

}  // namespace cli
