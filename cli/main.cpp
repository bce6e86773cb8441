// brimstell: the command line over Brimstell's engines.
//
// Exit status: 0 success, 1 failure, 2 usage. Every error goes to standard error as
// "brimstell: <sentence>".

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>

#include "cli/Commands.hpp"
#include "kit/agent/ProcessHost.hpp"

namespace {

// The deepest command the parse got as far as, and its path ("brimstell settings set").
const CLI::App* reached(const CLI::App& app, std::string& path) {
    path = app.get_name();
    const CLI::App* at = &app;
    for (auto chosen = at->get_subcommands(); !chosen.empty(); chosen = at->get_subcommands()) {
        at = chosen.front();
        path += " " + at->get_name();
    }
    return at;
}

int usageError(const CLI::App& app, const CLI::ParseError& e) {
    std::string path;
    const CLI::App* at = reached(app, path);
    const auto rest = at->remaining();
    // A word where a command was wanted: say so, rather than that a command is missing.
    if (!at->get_subcommands({}).empty() && !rest.empty() && !rest.front().starts_with("-")) {
        std::fprintf(stderr, "brimstell: %s has no command '%s'\n", path.c_str(), rest.front().c_str());
    } else {
        std::fprintf(stderr, "brimstell: %s\n", e.what());
    }
    std::fprintf(stderr, "Run '%s --help' for usage.\n", path.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    brimstell::installProcessHost();

    CLI::App app{"Brimstell keeps a Mac clean and healthy: junk, the Trash and its history, the background agent.\n"
                 "Point any command at a sandbox Mac with BRIMSTELL_ROOT=<folder> BRIMSTELL_PLATFORM=mac "
                 "HOME=<folder>/Users/<name> (see `brimstell demo`)."};
    app.name("brimstell");
    app.require_subcommand(1);
    app.set_version_flag("--version", "brimstell " BRIMSTELL_VERSION);
    int exitCode = 0;
    cli::addAgentCommands(app, exitCode);
    cli::addSettingsCommands(app, exitCode);
    cli::addFilesCommands(app, exitCode);
    cli::addJunkCommands(app, exitCode);
    cli::addAutoCleanCommands(app, exitCode);
    cli::addAppsCommands(app, exitCode);
    cli::addUpdatesCommand(app, exitCode);
    cli::addLeftoversCommands(app, exitCode);
    cli::addStartupCommands(app, exitCode);
    cli::addDeveloperCommands(app, exitCode);
    cli::addCloudCommands(app, exitCode);
    cli::addSlowCommands(app, exitCode);
    cli::addHealthCommand(app, exitCode);
    cli::addDemoCommand(app, exitCode);
    cli::addHelperCommands(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help and --version come this way too, with status 0.
        if (e.get_exit_code() == 0) return app.exit(e);
        return usageError(app, e);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "brimstell: %s\n", e.what());
        return 1;
    }
    return exitCode;
}
