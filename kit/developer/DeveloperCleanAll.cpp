// Clean All: what is safe to remove in one go, and the texts the page shows for it. Images that a
// container uses and volumes are never touched here.

#include <fmt/format.h>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/developer/Brew.hpp"
#include "kit/developer/DeveloperModel.hpp"
#include "kit/developer/Simulators.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

std::int64_t DeveloperModel::cleanAllBytes() const {
    std::int64_t bytes = 0;
    if (xcode.installed) {
        for (const auto& d : xcode.unavailable()) bytes += d.dataPathSize;
    }
    if (docker.running) {
        for (const auto kind : {DockerKind::containers, DockerKind::buildCache}) {
            if (const auto* row = docker.row(kind)) bytes += row->reclaimableBytes;
        }
    }
    if (brew.installed) bytes += brew.preview.bytes();
    return bytes;
}

std::vector<CleanAllStep> DeveloperModel::cleanAllSteps() const {
    std::vector<CleanAllStep> steps;
    if (xcode.installed) steps.push_back({"xcrun", {"simctl", "delete", "unavailable"}});
    // Docker that isn't running is passed over.
    if (docker.running) {
        steps.push_back({"docker", Docker::pruneArguments(DockerKind::containers)});
        steps.push_back({"docker", Docker::pruneArguments(DockerKind::buildCache)});
    }
    if (brew.installed) {
        steps.push_back({"brew", {"cleanup"}});
        steps.push_back({"brew", {"autoremove"}});
    }
    return steps;
}

bool DeveloperModel::cleanAll() {
    // Nothing runs when there is nothing to free: an estimate of zero is the page's "nothing to do".
    const std::int64_t estimate = cleanAllBytes();
    if (estimate == 0) {
        message = nothingToClean;
        return true;
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    bool ok = true;
    for (const auto& step : cleanAllSteps()) {
        ToolRun r;
        if (step.tool == "xcrun") {
            r = Simulators::simctl({step.arguments.begin() + 1, step.arguments.end()}, Simulators::deleteTimeout);
        } else if (step.tool == "docker") {
            r = Docker::run(step.arguments, Docker::pruneTimeout);
        } else {
            r = Brew::run(step.arguments, Brew::changeTimeout);
        }
        ok = ok && r.ok;  // one that fails doesn't keep the others from running
    }
    load();
    return finish(ok, "Cleaned · about " + quorv::formatSize(estimate));
}

std::string DeveloperModel::dependenciesLine(std::size_t count) {
    return fmt::format("Installed as dependencies · {}", count);
}

std::string DeveloperModel::oldVersionsLine(std::int64_t bytes) {
    return "Old versions and downloads · " + quorv::formatSize(bytes);
}

std::string DeveloperModel::unusedDependenciesLine(std::size_t count) {
    return fmt::format("{} dependencies nothing needs any more:", count);
}

std::string DeveloperModel::goneSimulatorsLine(std::size_t count, std::int64_t bytes) {
    return fmt::format("{} simulators whose runtime is gone · {}", count, quorv::formatSize(bytes));
}

}  // namespace brimstell
