#pragma once
// The developer page: what Homebrew, Docker and Xcode keep, and their own commands that remove
// it. Nothing here goes to the Trash: each tool deletes for good.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/developer/BrewPackage.hpp"
#include "kit/developer/Docker.hpp"
#include "kit/developer/SimDevice.hpp"
#include "kit/developer/SimRuntime.hpp"

namespace brimstell {

struct BrewSection {
    bool installed = false;
    std::vector<BrewPackage> packages;      // installed on request, largest first
    std::vector<BrewPackage> dependencies;  // installed as dependencies, by name
    BrewPreview preview;
    std::optional<std::string> message;     // why the section is empty
};

struct DockerSection {
    bool installed = false;
    bool running = false;
    std::vector<DockerUsage> usage;
    std::optional<std::string> message;
    const DockerUsage* row(DockerKind kind) const;
};

struct XcodeSection {
    bool installed = false;
    std::vector<SimDevice> simulators;
    std::vector<SimRuntime> runtimes;
    std::optional<std::string> message;
    std::vector<SimDevice> unavailable() const;
};

// One tool run of Clean All.
struct CleanAllStep {
    std::string tool;  // "xcrun", "docker", "brew"
    std::vector<std::string> arguments;
};

class DeveloperModel {
public:
    BrewSection brew;
    DockerSection docker;
    XcodeSection xcode;
    // The line the last operation ended with: "jq updated", "That didn't work", …
    std::optional<std::string> message;

    void load();
    void loadBrew();
    void loadDocker();
    void loadXcode();

    // A package as "formula:NAME", "cask:NAME", or a bare name looked up among those installed.
    bool upgrade(const std::string& package);
    bool uninstall(const std::string& package);
    bool prune(DockerKind kind);
    bool deleteSimulator(const std::string& udid);
    bool deleteUnavailableSimulators();
    bool deleteRuntime(const std::string& identifier);
    bool cleanAll();

    // What Clean All would free: the simulators whose runtime is gone, stopped containers, the
    // build cache and Homebrew's old versions.
    std::int64_t cleanAllBytes() const;
    // What Clean All runs, in order, with the tools that are there now.
    std::vector<CleanAllStep> cleanAllSteps() const;

    // Why a package or a simulator or runtime identifier is refused before any tool sees it.
    static std::optional<std::string> packageProblem(const std::string& package);
    static std::optional<std::string> identifierProblem(const std::string& identifier);

    static std::string dependenciesLine(std::size_t count);
    static std::string oldVersionsLine(std::int64_t bytes);
    static std::string unusedDependenciesLine(std::size_t count);
    static std::string goneSimulatorsLine(std::size_t count, std::int64_t bytes);

    static constexpr const char* packagesHeading = "Packages you installed, largest first";
    static constexpr const char* nothingToClean = "Nothing safe to clean in one go";
    static constexpr const char* unavailableDeleted = "Simulators whose runtime is gone deleted";

private:
    std::optional<BrewPackage> resolve(const std::string& package);
    bool changePackage(const std::string& package, bool remove);
    bool finish(bool ok, const std::string& done);
};

}  // namespace brimstell
