#include "kit/developer/DeveloperModel.hpp"

#include <algorithm>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/developer/Brew.hpp"
#include "kit/developer/Simulators.hpp"
#include "kit/developer/ToolText.hpp"
#include "kit/files/SizeWalker.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

namespace {

// Homebrew keeps a formula in <prefix>/Cellar/<name> and a cask in <prefix>/Caskroom/<token>,
// the prefix being the folder above brew's own bin folder.
void measure(std::vector<BrewPackage>& packages, const std::string& brewLocation) {
    const auto bin = brewLocation.substr(0, brewLocation.rfind('/'));
    const auto prefix = bin.substr(0, bin.rfind('/'));
    std::vector<std::string> folders;
    for (const auto& p : packages) {
        folders.push_back(prefix + (p.kind == BrewPackage::Kind::cask ? "/Caskroom/" : "/Cellar/") + p.name);
    }
    const auto sizes = SizeWalker::walkMany(folders);
    for (std::size_t i = 0; i < packages.size() && i < sizes.size(); ++i) packages[i].bytes = sizes[i].beneath();
}

// Casks that `brew outdated` names, with the version it offers.
void markOutdatedCasks(std::vector<BrewPackage>& packages) {
    const auto r = Brew::run({"outdated", "--cask", "--json=v2"});
    if (!r.ok) return;
    const auto j = ToolText::parseJson(r.output);
    const auto casks = j.is_object() ? j.find("casks") : j.end();
    if (!j.is_object() || casks == j.end() || !casks->is_array()) return;
    for (const auto& c : *casks) {
        const auto name = c.is_object() ? c.find("name") : c.end();
        const auto current = c.is_object() ? c.find("current_version") : c.end();
        if (!c.is_object() || name == c.end() || !name->is_string()) continue;
        for (auto& p : packages) {
            if (p.kind != BrewPackage::Kind::cask || p.name != name->get<std::string>()) continue;
            p.outdated = true;
            if (current != c.end() && current->is_string()) p.available = current->get<std::string>();
        }
    }
}

}  // namespace

const DockerUsage* DockerSection::row(DockerKind kind) const {
    for (const auto& u : usage) {
        if (u.type == Docker::typeName(kind)) return &u;
    }
    return nullptr;
}

std::vector<SimDevice> XcodeSection::unavailable() const {
    std::vector<SimDevice> gone;
    std::copy_if(simulators.begin(), simulators.end(), std::back_inserter(gone), [](const SimDevice& d) { return !d.isAvailable; });
    return gone;
}

void DeveloperModel::load() {
    loadBrew();
    loadDocker();
    loadXcode();
}

void DeveloperModel::loadBrew() {
    BrewSection section;
    const auto location = Brew::location();
    section.installed = location.has_value();
    if (!location) {
        section.message = Brew::notInstalled;
        brew = std::move(section);
        return;
    }
    const auto info = Brew::run({"info", "--installed", "--json=v2"});
    if (!info.ok) section.message = DeveloperTools::didntWork;
    auto all = Brew::parseInfo(info.output);
    markOutdatedCasks(all);
    measure(all, *location);
    for (auto& p : all) (p.onRequest ? section.packages : section.dependencies).push_back(std::move(p));
    std::stable_sort(section.packages.begin(), section.packages.end(), [](const BrewPackage& a, const BrewPackage& b) {
        return a.bytes > b.bytes;
    });
    std::sort(section.dependencies.begin(), section.dependencies.end(),
              [](const BrewPackage& a, const BrewPackage& b) { return a.name < b.name; });
    if (const auto r = Brew::run({"cleanup", "--dry-run"}); r.ok) section.preview.oldVersions = Brew::parseCleanup(r.output);
    if (const auto r = Brew::run({"autoremove", "--dry-run"}); r.ok) {
        section.preview.unusedDependencies = Brew::parseAutoremove(r.output);
    }
    brew = std::move(section);
}

void DeveloperModel::loadDocker() {
    DockerSection section;
    section.installed = Docker::location().has_value();
    if (!section.installed) {
        section.message = Docker::notInstalled;
    } else if (const auto r = Docker::run({"system", "df", "--format", "{{json .}}"}); !r.ok) {
        section.message = Docker::notRunning;
    } else {
        section.running = true;
        section.usage = Docker::parseUsage(r.output);
    }
    docker = std::move(section);
}

void DeveloperModel::loadXcode() {
    XcodeSection section;
    section.installed = Simulators::xcodePresent();
    if (!section.installed) {
        section.message = Simulators::notInstalled;
        xcode = std::move(section);
        return;
    }
    const auto devices = Simulators::simctl({"list", "devices", "--json"});
    const auto runtimes = Simulators::simctl({"runtime", "list", "--json"});
    if (!devices.ok || !runtimes.ok) section.message = DeveloperTools::didntWork;
    section.simulators = Simulators::parseDevices(devices.output);
    section.runtimes = SimRuntime::parse(runtimes.output);
    xcode = std::move(section);
}

}  // namespace brimstell
