// brimstell: the command line over Brimstell's engines.

#include <CLI/CLI.hpp>

#include "cli/Commands.hpp"
#include "kit/agent/ProcessHost.hpp"

int main(int argc, char** argv) {
    brimstell::installProcessHost();

    CLI::App app{"Brimstell keeps a Mac clean and healthy: junk, the Trash and its history, the background agent.\n"
                 "Point any command at a sandbox Mac with BRIMSTELL_ROOT=<folder> BRIMSTELL_PLATFORM=mac "
                 "HOME=<folder>/Users/<name> (see `brimstell demo`)."};
    app.name("brimstell");
    app.require_subcommand(1);
    app.set_version_flag("--version", "brimstell 0.1.0");
    int exitCode = 0;
    cli::addAgentCommands(app, exitCode);
    cli::addSettingsCommands(app, exitCode);
    cli::addFilesCommands(app, exitCode);
    cli::addJunkCommands(app, exitCode);
    cli::addAutoCleanCommands(app, exitCode);
    cli::addDemoCommand(app, exitCode);
    cli::addHelperCommands(app, exitCode);
    CLI11_PARSE(app, argc, argv);
    return exitCode;
}
