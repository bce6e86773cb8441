// brimstell apps | versions compare

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/updates/AppBundles.hpp"
#include "support/versions/Versions.hpp"

namespace cli {

namespace {

using brimstell::AppBundle;

// Where an app's updates come from: the App Store, its own feed, or nowhere Brimstell can see.
std::string updatesWord(const AppBundle& app) {
    if (app.fromAppStore) return "appStore";
    return app.feed ? "feed" : "none";
}

std::string updatesText(const AppBundle& app) {
    if (app.fromAppStore) return "App Store";
    return app.feed ? "feed " + *app.feed : "none";
}

Json appJson(const AppBundle& app) {
    Json j = Json::object();
    j["name"] = app.name;
    putPath(j, "path", app.url);
    j["bundleId"] = app.bundleID;
    j["version"] = app.version;
    j["buildVersion"] = app.build;
    j["updates"] = updatesWord(app);
    j["feed"] = app.feed ? Json(*app.feed) : Json(nullptr);
    return j;
}

void runApps(bool json, bool apple) {
    const auto apps = brimstell::AppBundles::all(apple);
    if (json) {
        Json list = Json::array();
        for (const auto& app : apps) list.push_back(appJson(app));
        printJson(list);
        return;
    }
    if (apps.empty()) {
        fmt::print("No apps found.\n");
        return;
    }
    std::size_t name = 4, version = 7, build = 5;
    for (const auto& a : apps) {
        name = std::max(name, shownPath(a.name).size());
        version = std::max(version, shownPath(a.version).size());
        build = std::max(build, shownPath(a.build).size());
    }
    fmt::print("{:<{}}  {:<{}}  {:<{}}  {}\n", "Name", name, "Version", version, "Build", build, "Updates");
    for (const auto& a : apps) {
        fmt::print("{:<{}}  {:<{}}  {:<{}}  {}\n", shownPath(a.name), name, shownPath(a.version), version,
                   shownPath(a.build), build, updatesText(a));
    }
    fmt::print("{} app{}\n", apps.size(), apps.size() == 1 ? "" : "s");
}

std::string orderWord(std::string_view a, std::string_view b) {
    switch (quorv::Versions::compare(a, b)) {
        case quorv::Versions::Order::ascending: return "older";
        case quorv::Versions::Order::same: return "same";
        case quorv::Versions::Order::descending: return "newer";
    }
    return "same";
}

Json compareJson(const std::string& a, const std::string& b) {
    return Json{{"version", a}, {"otherVersion", b}, {"order", orderWord(a, b)}};
}

// Tab-separated pairs from standard input, one answer line each. A line that isn't a pair is
// answered "invalid" (so answers stay in step with the lines), said on standard error, and makes
// the status 1.
void compareLines(bool json, int& exitCode) {
    std::string line;
    Json answers = Json::array();
    for (std::size_t number = 1; std::getline(std::cin, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const auto tab = line.find('\t');
        if (tab == std::string::npos || line.find('\t', tab + 1) != std::string::npos) {
            error(fmt::format("line {}: two versions separated by one tab are wanted", number));
            exitCode = 1;
            if (json) answers.push_back(nullptr);
            else fmt::print("invalid\n");
            continue;
        }
        const std::string a = line.substr(0, tab), b = line.substr(tab + 1);
        if (json) answers.push_back(compareJson(a, b));
        else fmt::print("{}\n", orderWord(a, b));
        std::fflush(stdout);
    }
    if (json) printJson(answers);
}

void runCompare(const std::vector<std::string>& pair, bool json, int& exitCode) {
    if (pair.size() == 1 && pair[0] == "-") {
        compareLines(json, exitCode);
        return;
    }
    if (pair.size() != 2) {
        error("versions compare takes two versions, or - to read tab-separated pairs from standard input");
        exitCode = 2;
        return;
    }
    if (json) printJson(compareJson(pair[0], pair[1]));
    else fmt::print("{}\n", orderWord(pair[0], pair[1]));
}

}  // namespace

void addAppsCommands(CLI::App& app, int& exitCode) {
    static bool appsJson = false, appsApple = false;
    auto* apps = jsonCommand(&app, "apps", "The installed apps: version, build and where their updates come from", appsJson);
    apps->add_flag("--apple", appsApple, "Include Apple's own apps");
    apps->footer("Apps are looked for in /Applications and ~/Applications, and one folder down in each.");
    apps->callback([] { runApps(appsJson, appsApple); });

    auto* versions = app.add_subcommand("versions", "The order of version texts, as Brimstell compares them");
    versions->require_subcommand(1);
    static bool versionsJson = false;
    static std::vector<std::string> pair;
    auto* compare = jsonCommand(versions, "compare", "Print older, same or newer: A against B", versionsJson);
    compare->add_option("VERSIONS", pair, "A B, or - to read lines of A<tab>B from standard input")->required();
    compare->footer("Exit status 0 whatever the order. With -, one answer line per input line, for scripts.");
    compare->callback([&exitCode] { runCompare(pair, versionsJson, exitCode); });
}

}  // namespace cli
