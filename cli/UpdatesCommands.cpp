// brimstell updates [--json] [--explain]

#include <algorithm>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/updates/UpdatesModel.hpp"

namespace cli {

namespace {

using brimstell::AppCheck;
using brimstell::AppUpdate;
using brimstell::UpdatesModel;

std::string sourceWord(AppUpdate::Source s) {
    switch (s) {
        case AppUpdate::Source::sparkle: return "sparkle";
        case AppUpdate::Source::appStore: return "appStore";
        case AppUpdate::Source::homebrew: return "homebrew";
    }
    return "sparkle";
}

std::string outcomeWord(AppCheck::Outcome o) {
    switch (o) {
        case AppCheck::Outcome::update: return "update";
        case AppCheck::Outcome::upToDate: return "upToDate";
        case AppCheck::Outcome::cantCheck: return "cantCheck";
        case AppCheck::Outcome::notReached: return "notReached";
    }
    return "cantCheck";
}

Json updateJson(const AppUpdate& u) {
    Json j = Json::object();
    j["id"] = u.id();
    j["name"] = u.name;
    j["source"] = sourceWord(u.source);
    if (u.app) putPath(j, "path", u.app->url);
    j["installedVersion"] = u.installed;
    j["availableVersion"] = u.available;
    if (u.item) j["downloadUrl"] = u.item->url;
    if (u.item && u.item->notes) j["releaseNotesUrl"] = *u.item->notes;
    if (u.storeURL) j["storeUrl"] = *u.storeURL;
    if (u.cask) j["cask"] = *u.cask;
    return j;
}

Json appsJson(const std::vector<brimstell::AppBundle>& apps) {
    Json list = Json::array();
    for (const auto& a : apps) {
        Json j{{"name", a.name}};
        putPath(j, "path", a.url);
        list.push_back(j);
    }
    return list;
}

Json explainJson(const std::vector<AppCheck>& checks) {
    Json list = Json::array();
    for (const auto& c : checks) {
        list.push_back(Json{{"name", c.name},
                            {"source", c.source.empty() ? Json(nullptr) : Json(c.source)},
                            {"outcome", outcomeWord(c.outcome)},
                            {"chosenVersion", c.chosen ? Json(*c.chosen) : Json(nullptr)},
                            {"passedOver", c.passedOver}});
    }
    return list;
}

void printJsonResult(const UpdatesModel& m, bool explain) {
    Json j = Json::object();
    j["checkedAt"] = dateJson(m.lastCheck.value_or(0));
    Json updates = Json::array();
    for (const auto& u : m.updates) updates.push_back(updateJson(u));
    j["updates"] = updates;
    j["upToDate"] = m.upToDate;
    j["notReached"] = appsJson(m.failed);
    j["cantCheck"] = appsJson(m.cantCheck);
    if (explain) j["apps"] = explainJson(m.apps);
    printJson(j);
}

std::string explainLine(const AppCheck& c) {
    const std::string name = shownPath(c.name);
    if (c.outcome == AppCheck::Outcome::cantCheck) return name + ": no App Store receipt and no update feed, not asked";
    std::string line = name + ": asked " + c.source;
    if (c.outcome == AppCheck::Outcome::notReached) return line + ", not reached";
    line += ", chose " + shownPath(c.chosen.value_or("")) +
            (c.outcome == AppCheck::Outcome::update ? " (newer than installed)" : " (installed is up to date)");
    return line;
}

void printText(const UpdatesModel& m, bool explain) {
    if (m.updates.empty()) {
        fmt::print("{}\n", UpdatesModel::allCurrentText);
    } else {
        std::size_t name = 4, installed = 9, available = 9;
        for (const auto& u : m.updates) {
            name = std::max(name, shownPath(u.name).size());
            installed = std::max(installed, shownPath(u.installed).size());
            available = std::max(available, shownPath(u.available).size());
        }
        fmt::print("{:<{}}  {:<{}}  {:<{}}  {}\n", "Name", name, "Installed", installed, "Available", available, "Source");
        for (const auto& u : m.updates) {
            fmt::print("{:<{}}  {:<{}}  {:<{}}  {}\n", shownPath(u.name), name, shownPath(u.installed), installed,
                       shownPath(u.available), available, AppUpdate::label(u.source));
        }
        fmt::print("{}\n", UpdatesModel::caption);
    }
    for (const auto& a : m.failed) fmt::print("{}\n", UpdatesModel::notReachedText(shownPath(a.name)));
    if (!m.cantCheck.empty()) {
        fmt::print("\n{}\n", UpdatesModel::cantCheckText);
        for (const auto& a : m.cantCheck) fmt::print("  {}\n", shownPath(a.name));
    }
    if (!explain) return;
    fmt::print("\n");
    for (const auto& c : m.apps) {
        fmt::print("{}\n", explainLine(c));
        for (const auto& why : c.passedOver) fmt::print("  passed over {}\n", shownPath(why));
    }
}

}  // namespace

void addUpdatesCommand(CLI::App& app, int& exitCode) {
    static bool json = false, explain = false;
    auto* updates = jsonCommand(&app, "updates", "Check installed apps and Homebrew casks for newer versions", json);
    updates->add_flag("--explain", explain, "Say for every app which source was asked and why releases were passed over");
    updates->callback([&exitCode] {
        UpdatesModel model;
        model.check();
        if (json) printJsonResult(model, explain);
        else printText(model, explain);
        exitCode = 0;
    });
}

}  // namespace cli
