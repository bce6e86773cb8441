// What the developer page does with one package, one Docker kind, one simulator or runtime.

#include <algorithm>

#include <fmt/format.h>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/developer/Brew.hpp"
#include "kit/developer/DeveloperModel.hpp"
#include "kit/developer/Simulators.hpp"

namespace brimstell {

bool DeveloperModel::finish(bool ok, const std::string& done) {
    message = ok ? done : DeveloperTools::didntWork;
    return ok;
}

namespace {

std::string bareName(const std::string& package) {
    if (package.starts_with("cask:")) return package.substr(5);
    if (package.starts_with("formula:")) return package.substr(8);
    return package;
}

}  // namespace

std::optional<std::string> DeveloperModel::packageProblem(const std::string& package) {
    if (Brew::validName(bareName(package))) return std::nullopt;
    return fmt::format("\"{}\" isn't a package name", package);
}

std::optional<std::string> DeveloperModel::identifierProblem(const std::string& identifier) {
    if (Simulators::validIdentifier(identifier)) return std::nullopt;
    return fmt::format("\"{}\" isn't a simulator or runtime identifier", identifier);
}

std::optional<BrewPackage> DeveloperModel::resolve(const std::string& package) {
    if ((message = packageProblem(package))) return std::nullopt;
    BrewPackage p;
    p.name = bareName(package);
    if (package.starts_with("cask:")) p.kind = BrewPackage::Kind::cask;
    if (!Brew::location()) {
        message = Brew::notInstalled;
        return std::nullopt;
    }
    if (p.name == package) {
        // A bare name: a cask when one of that token is installed and no formula of that name.
        if (brew.packages.empty() && brew.dependencies.empty()) loadBrew();
        const auto named = [&](const BrewPackage& q) { return q.name == p.name; };
        const auto formula = std::find_if(brew.dependencies.begin(), brew.dependencies.end(), named);
        const auto listed = std::find_if(brew.packages.begin(), brew.packages.end(), named);
        if (formula == brew.dependencies.end() && listed != brew.packages.end()) p.kind = listed->kind;
    }
    return p;
}

bool DeveloperModel::changePackage(const std::string& package, bool remove) {
    const auto p = resolve(package);
    if (!p) return false;
    const auto arguments = remove ? Brew::uninstallArguments(*p) : Brew::upgradeArguments(*p);
    if (!arguments) return false;
    std::optional<CleanLock> lock;
    if (remove && !(lock = CleanLock::take())) {
        message = CleanLock::busyText;
        return false;
    }
    if (!Brew::run(*arguments, Brew::changeTimeout).ok) return finish(false, "");
    loadBrew();
    return finish(true, p->name + (remove ? " uninstalled" : " updated"));
}

bool DeveloperModel::upgrade(const std::string& package) { return changePackage(package, false); }

bool DeveloperModel::uninstall(const std::string& package) { return changePackage(package, true); }

bool DeveloperModel::prune(DockerKind kind) {
    if (!Docker::location()) {
        message = Docker::notInstalled;
        return false;
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    if (!Docker::run(Docker::pruneArguments(kind), Docker::pruneTimeout).ok) return finish(false, "");
    loadDocker();
    return finish(true, std::string(Docker::typeName(kind)) + " cleared");
}

bool DeveloperModel::deleteSimulator(const std::string& udid) {
    if ((message = identifierProblem(udid))) return false;
    if (!Simulators::xcrun()) {
        message = Simulators::notInstalled;
        return false;
    }
    std::string name = udid;
    for (const auto& d : xcode.simulators) {
        if (d.udid == udid) name = d.name;
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    if (!Simulators::simctl({"delete", udid}, Simulators::deleteTimeout).ok) return finish(false, "");
    loadXcode();
    return finish(true, name + " deleted");
}

bool DeveloperModel::deleteUnavailableSimulators() {
    if (!Simulators::xcrun()) {
        message = Simulators::notInstalled;
        return false;
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    if (!Simulators::simctl({"delete", "unavailable"}, Simulators::deleteTimeout).ok) return finish(false, "");
    loadXcode();
    return finish(true, unavailableDeleted);
}

bool DeveloperModel::deleteRuntime(const std::string& identifier) {
    if ((message = identifierProblem(identifier))) return false;
    if (!Simulators::xcrun()) {
        message = Simulators::notInstalled;
        return false;
    }
    std::string name = identifier;
    for (const auto& r : xcode.runtimes) {
        if (r.identifier == identifier) name = r.name();
    }
    const auto lock = CleanLock::take();
    if (!lock) {
        message = CleanLock::busyText;
        return false;
    }
    if (!Simulators::simctl({"runtime", "delete", identifier}, Simulators::deleteTimeout).ok) return finish(false, "");
    loadXcode();
    return finish(true, name + " deleted");
}

}  // namespace brimstell
