// brimstell dev [clean-all | prune KIND | upgrade PACKAGE | uninstall PACKAGE |
//                simulators delete UDID|unavailable | runtimes delete ID]

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/DeveloperOutput.hpp"
#include "cli/Spinner.hpp"
#include "kit/developer/DeveloperTools.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::DeveloperModel;
using brimstell::DeveloperTools;

constexpr const char* asking = "Asking Homebrew, Docker and Xcode…";

// Prints the line the model ended with: on standard output when it went well, else as an error.
void report(const DeveloperModel& model, bool ok, int& exitCode) {
    if (ok) {
        fmt::print("{}\n", model.message.value_or(""));
        return;
    }
    error(model.message.value_or(DeveloperTools::didntWork));
    exitCode = 1;
}

// Says that what follows deletes for good, then asks; false when it doesn't go ahead.
bool forGood(const std::string& what, const std::string& question, bool yes, int& exitCode) {
    fmt::print("{}\n{}\n", what, DeveloperTools::notTrashed);
    return goAhead(question, yes, "deleting", "Nothing deleted.", exitCode);
}

// A refusal the engine gives before any tool runs: a usage fault.
bool refused(const std::optional<std::string>& problem, int& exitCode) {
    if (!problem) return false;
    error(*problem);
    exitCode = 2;
    return true;
}

void runList(bool json) {
    DeveloperModel model;
    {
        Spinner spinner(asking);
        model.load();
    }
    if (json) printJson(developerJson(model));
    else printDeveloper(model);
}

void runCleanAll(bool dryRun, bool yes, int& exitCode) {
    DeveloperModel model;
    {
        Spinner spinner(asking);
        model.load();
    }
    const auto bytes = model.cleanAllBytes();
    if (bytes == 0) {
        fmt::print("{}\n", DeveloperModel::nothingToClean);
        return;
    }
    fmt::print("{}\n", dryRun ? "Would run:" : "Runs, in this order:");
    for (const auto& step : model.cleanAllSteps()) fmt::print("  {} {}\n", step.tool, fmt::join(step.arguments, " "));
    fmt::print("Frees about {}. Images in use and volumes are left alone.\n", quorv::formatSize(bytes));
    if (dryRun) return;
    if (!forGood("Each tool deletes what it removes.", "Clean all of it for good?", yes, exitCode)) return;
    bool ok = false;
    {
        Spinner spinner("Cleaning…");
        ok = model.cleanAll();
    }
    report(model, ok, exitCode);
}

void runPrune(const std::string& word, bool yes, int& exitCode) {
    const auto kind = brimstell::Docker::kindNamed(word);
    if (!kind) {
        error("\"" + word + "\" isn't one of containers, images, build-cache, volumes");
        exitCode = 2;
        return;
    }
    if (!forGood(brimstell::Docker::pruneText(*kind), "Go ahead?", yes, exitCode)) return;
    DeveloperModel model;
    bool ok = false;
    {
        Spinner spinner("Asking Docker…");
        ok = model.prune(*kind);
    }
    report(model, ok, exitCode);
}

void runPackage(const std::string& package, bool remove, bool yes, int& exitCode) {
    if (refused(DeveloperModel::packageProblem(package), exitCode)) return;
    if (remove && !forGood("Homebrew removes " + package + " and its files.", "Uninstall " + package + "?", yes, exitCode)) {
        return;
    }
    DeveloperModel model;
    bool ok = false;
    {
        Spinner spinner("Asking Homebrew…");
        ok = remove ? model.uninstall(package) : model.upgrade(package);
    }
    report(model, ok, exitCode);
}

// Deletes one simulator (or those that cannot run) or one runtime.
void runDelete(const std::string& identifier, bool runtime, bool yes, int& exitCode) {
    const bool unavailable = !runtime && identifier == "unavailable";
    if (!unavailable && refused(DeveloperModel::identifierProblem(identifier), exitCode)) return;
    DeveloperModel model;
    {
        Spinner spinner("Asking Xcode…");
        model.loadXcode();
    }
    std::string name = identifier;
    for (const auto& d : model.xcode.simulators) name = d.udid == identifier ? d.name : name;
    for (const auto& r : model.xcode.runtimes) name = r.identifier == identifier ? r.name() : name;
    const std::string what = unavailable ? "Simulators whose runtime is gone are deleted with their data."
                             : runtime   ? "The runtime " + name + " is deleted."
                                         : "The simulator " + name + " is deleted with its data.";
    if (!forGood(what, "Delete for good?", yes, exitCode)) return;
    bool ok = false;
    {
        Spinner spinner("Deleting…");
        ok = unavailable ? model.deleteUnavailableSimulators()
             : runtime   ? model.deleteRuntime(identifier)
                         : model.deleteSimulator(identifier);
    }
    report(model, ok, exitCode);
}

}  // namespace

void addDeveloperCommands(CLI::App& app, int& exitCode) {
    static bool json = false;
    auto* dev = jsonCommand(&app, "dev", "What Homebrew, Docker and Xcode keep, removed by their own tools", json);
    dev->footer("Nothing here goes to the Trash: each tool deletes what it removes, and every such command says so first.");
    dev->callback([dev] {
        if (dev->get_subcommands().empty()) runList(json);
    });

    static bool dryRun = false, yes = false;
    auto* all = dev->add_subcommand("clean-all", "Delete unavailable simulators, stopped containers, the build cache and Homebrew's leftovers");
    all->add_flag("--dry-run", dryRun, "Show what would run, run nothing");
    all->add_flag("--yes", yes, "Don't ask first");
    all->callback([&exitCode] { runCleanAll(dryRun, yes, exitCode); });

    static std::string kind, package, identifier;
    auto* prune = dev->add_subcommand("prune", "Have Docker remove one kind of what it keeps");
    prune->add_option("KIND", kind, "containers, images, build-cache or volumes")->required();
    prune->add_flag("--yes", yes, "Don't ask first");
    prune->callback([&exitCode] { runPrune(kind, yes, exitCode); });

    auto* upgrade = dev->add_subcommand("upgrade", "Update one Homebrew package");
    upgrade->add_option("PACKAGE", package, "A name, or formula:NAME / cask:NAME")->required();
    upgrade->callback([&exitCode] { runPackage(package, false, true, exitCode); });
    auto* uninstall = dev->add_subcommand("uninstall", "Remove one Homebrew package");
    uninstall->add_option("PACKAGE", package, "A name, or formula:NAME / cask:NAME")->required();
    uninstall->add_flag("--yes", yes, "Don't ask first");
    uninstall->callback([&exitCode] { runPackage(package, true, yes, exitCode); });

    for (const bool runtime : {false, true}) {
        auto* group = dev->add_subcommand(runtime ? "runtimes" : "simulators", runtime ? "Xcode's simulator runtimes" : "Xcode's simulators");
        group->require_subcommand(1);
        auto* del = group->add_subcommand("delete", runtime ? "Delete one runtime" : "Delete one simulator, or those whose runtime is gone");
        del->add_option(runtime ? "ID" : "UDID", identifier, runtime ? "The runtime's identifier" : "The simulator's UDID, or unavailable")->required();
        del->add_flag("--yes", yes, "Don't ask first");
        del->callback([&exitCode, runtime] { runDelete(identifier, runtime, yes, exitCode); });
    }
}

}  // namespace cli
