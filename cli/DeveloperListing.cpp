// What `brimstell dev` prints: Homebrew, Docker and Xcode, as text and as JSON.

#include <fmt/format.h>

#include "cli/DeveloperOutput.hpp"
#include "cli/Output.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::BrewPackage;
using brimstell::DeveloperModel;

std::string versionsText(const BrewPackage& p) {
    std::string text = p.versions.empty() ? "" : p.versions.back();
    if (p.outdated && !p.available.empty()) text += " → " + p.available;
    if (p.kind == BrewPackage::Kind::cask) text += "  cask";
    if (p.pinned) text += "  pinned";
    return text;
}

void printBrew(const brimstell::BrewSection& brew) {
    fmt::print("Homebrew\n");
    if (brew.message) fmt::print("  {}\n", *brew.message);
    if (!brew.installed) return;
    if (!brew.packages.empty()) fmt::print("  {}\n", DeveloperModel::packagesHeading);
    std::size_t width = 0;
    for (const auto& p : brew.packages) width = std::max(width, p.name.size());
    for (const auto& p : brew.packages) {
        fmt::print("    {:<{}}  {:>9}  {}\n", p.name, width, quorv::formatSize(p.bytes), versionsText(p));
    }
    fmt::print("  {}\n", DeveloperModel::dependenciesLine(brew.dependencies.size()));
    fmt::print("  {}\n", DeveloperModel::oldVersionsLine(brew.preview.bytes()));
    const auto& unused = brew.preview.unusedDependencies;
    if (!unused.empty()) fmt::print("  {} {}\n", DeveloperModel::unusedDependenciesLine(unused.size()), fmt::join(unused, ", "));
}

void printDocker(const brimstell::DockerSection& docker) {
    fmt::print("Docker\n");
    if (docker.message) fmt::print("  {}\n", *docker.message);
    for (const auto& u : docker.usage) {
        fmt::print("  {:<13}  {:>4}, {} active  {:>9}  {} reclaimable\n", u.type, u.totalCount, u.active,
                   quorv::formatSize(u.sizeBytes), quorv::formatSize(u.reclaimableBytes));
    }
}

void printXcode(const brimstell::XcodeSection& xcode) {
    fmt::print("Xcode\n");
    if (xcode.message) fmt::print("  {}\n", *xcode.message);
    if (!xcode.installed) return;
    for (const auto& d : xcode.simulators) {
        if (!d.isAvailable) continue;
        fmt::print("  {}  {}  {}  last booted {}  {}\n", d.name, d.runtime, quorv::formatSize(d.dataPathSize),
                   timeText(d.lastBootedAt), d.udid);
    }
    const auto gone = xcode.unavailable();
    std::int64_t goneBytes = 0;
    for (const auto& d : gone) goneBytes += d.dataPathSize;
    if (!gone.empty()) fmt::print("  {}\n", DeveloperModel::goneSimulatorsLine(gone.size(), goneBytes));
    for (const auto& r : xcode.runtimes) {
        fmt::print("  {} runtime  {}  last used {}  {}{}\n", r.name(), quorv::formatSize(r.bytes), timeText(r.lastUsedAt),
                   r.identifier, r.deletable ? "" : "  (kept by Xcode)");
    }
}

}  // namespace

void printDeveloper(const DeveloperModel& model) {
    printBrew(model.brew);
    printDocker(model.docker);
    printXcode(model.xcode);
    const auto bytes = model.cleanAllBytes();
    if (bytes == 0) fmt::print("{}\n", DeveloperModel::nothingToClean);
    else fmt::print("`brimstell dev clean-all` frees about {}. Nothing of it goes to the Trash.\n", quorv::formatSize(bytes));
}

}  // namespace cli
