// `brimstell dev --json` (see docs/json.md).

#include "cli/DeveloperOutput.hpp"

namespace cli {

namespace {

using brimstell::BrewPackage;

Json message(const std::optional<std::string>& m) { return m ? Json(*m) : Json(nullptr); }

Json packageJson(const BrewPackage& p) {
    return Json{{"id", p.id()},
                {"kind", p.kind == BrewPackage::Kind::cask ? "cask" : "formula"},
                {"name", p.name},
                {"description", p.description},
                {"installedVersion", p.versions.empty() ? Json(nullptr) : Json(p.versions.back())},
                {"outdated", p.outdated},
                {"availableVersion", p.available.empty() ? Json(nullptr) : Json(p.available)},
                {"pinned", p.pinned},
                {"onRequest", p.onRequest},
                {"bytes", p.bytes}};
}

Json brewJson(const brimstell::BrewSection& brew) {
    Json packages = Json::array(), dependencies = Json::array(), oldVersions = Json::array();
    for (const auto& p : brew.packages) packages.push_back(packageJson(p));
    for (const auto& p : brew.dependencies) dependencies.push_back(packageJson(p));
    for (const auto& item : brew.preview.oldVersions) {
        Json j = Json::object();
        putPath(j, "path", item.path);
        j["bytes"] = item.bytes;
        oldVersions.push_back(std::move(j));
    }
    return Json{{"installed", brew.installed}, {"message", message(brew.message)}, {"packages", packages},
                {"dependencies", dependencies}, {"oldVersions", oldVersions}, {"oldVersionsBytes", brew.preview.bytes()},
                {"unusedDependencies", brew.preview.unusedDependencies}};
}

Json dockerJson(const brimstell::DockerSection& docker) {
    Json usage = Json::array();
    for (const auto& u : docker.usage) {
        usage.push_back(Json{{"kind", stateWord(u.type)}, {"label", u.type}, {"itemCount", u.totalCount},
                             {"activeItems", u.active}, {"bytes", u.sizeBytes}, {"reclaimableBytes", u.reclaimableBytes}});
    }
    return Json{{"installed", docker.installed}, {"running", docker.running}, {"message", message(docker.message)}, {"usage", usage}};
}

Json xcodeJson(const brimstell::XcodeSection& xcode) {
    Json simulators = Json::array(), runtimes = Json::array();
    for (const auto& d : xcode.simulators) {
        simulators.push_back(Json{{"udid", d.udid}, {"name", d.name}, {"runtime", d.runtime}, {"isAvailable", d.isAvailable},
                                  {"dataBytes", d.dataPathSize}, {"lastBootedAt", dateJson(d.lastBootedAt)}});
    }
    for (const auto& r : xcode.runtimes) {
        runtimes.push_back(Json{{"identifier", r.identifier}, {"platform", r.platform}, {"version", r.version},
                                {"bytes", r.bytes}, {"lastUsedAt", dateJson(r.lastUsedAt)}, {"deletable", r.deletable}});
    }
    return Json{{"installed", xcode.installed}, {"message", message(xcode.message)}, {"simulators", simulators}, {"runtimes", runtimes}};
}

}  // namespace

Json developerJson(const brimstell::DeveloperModel& model) {
    return Json{{"homebrew", brewJson(model.brew)}, {"docker", dockerJson(model.docker)}, {"xcode", xcodeJson(model.xcode)},
                {"cleanAllBytes", model.cleanAllBytes()}};
}

}  // namespace cli
