// brimstell leftovers [clean]

#include <algorithm>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/LeftoversModel.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::LeftoverGroup;
using brimstell::LeftoversModel;

void scan(LeftoversModel& model) {
    Spinner spinner(LeftoversModel::lookingText);
    model.scan();
}

std::size_t itemCount(const std::vector<LeftoverGroup>& groups) {
    std::size_t n = 0;
    for (const auto& g : groups) n += g.items.size();
    return n;
}

Json groupJson(const LeftoverGroup& g) {
    Json items = Json::array();
    for (const auto& item : g.items) {
        Json j = Json::object();
        putPath(j, "path", item.location);
        j["label"] = item.label;
        j["bytes"] = item.size;
        j["selected"] = item.selected;
        items.push_back(std::move(j));
    }
    return Json{{"name", g.name}, {"bundleId", g.bundleID}, {"bytes", g.size()}, {"items", std::move(items)}};
}

Json groupsJson(const std::vector<LeftoverGroup>& groups) {
    Json list = Json::array();
    for (const auto& g : groups) list.push_back(groupJson(g));
    return list;
}

void printGroups(const std::vector<LeftoverGroup>& groups) {
    std::size_t width = 0;
    for (const auto& g : groups) width = std::max(width, g.name.size());
    for (const auto& g : groups) {
        fmt::print("{:<{}}  {:>9}  {}\n", g.name, width, quorv::formatSize(g.size()), g.bundleID);
        for (const auto& item : g.items) {
            fmt::print("    {:>9}  {}\n", quorv::formatSize(item.size), shownPath(item.location));
        }
    }
}

void runList(bool json) {
    LeftoversModel model;
    scan(model);
    if (json) {
        printJson(Json{{"groups", groupsJson(model.groups)}, {"totalBytes", model.total}});
        return;
    }
    if (model.groups.empty()) {
        fmt::print("{}\n", model.status());
        return;
    }
    printGroups(model.groups);
    fmt::print("{} removed app{} left {} behind. `brimstell leftovers clean` moves it to the Trash; "
               "`brimstell history` puts it back.\n",
               model.groups.size(), model.groups.size() == 1 ? "" : "s", quorv::formatSize(model.total));
}


void runClean(bool dryRun, bool yes, bool json, int& exitCode) {
    LeftoversModel model;
    scan(model);
    const std::size_t count = itemCount(model.groups);
    if (count == 0) {
        if (json) printJson(Json{{"dryRun", dryRun}, {"freedBytes", 0}, {"movedItems", 0}, {"skipped", Json::array()}});
        else fmt::print("Nothing to clean. {}\n", model.status());
        return;
    }
    if (dryRun) {
        if (json) {
            printJson(Json{{"dryRun", true}, {"groups", groupsJson(model.groups)}, {"wouldFreeBytes", model.total}});
            return;
        }
        printGroups(model.groups);
        fmt::print("Would move {} ({}) to the Trash.\n", itemsText(count), quorv::formatSize(model.total));
        return;
    }
    if (!json) {
        printGroups(model.groups);
        fmt::print("{}\n", LeftoversModel::confirmNote);
    }
    if (!goAhead(LeftoversModel::confirmText(model.total), yes, "moving " + itemsText(count), "Nothing moved.", exitCode)) {
        return;
    }
    brimstell::LeftoversCleanResult result;
    {
        Spinner spinner("Moving to the Trash…");
        result = model.trashSelected();
    }
    if (result.busy) {
        error(brimstell::CleanLock::busyText);
        exitCode = 1;
        return;
    }
    printCleanResult(result.freed, result.moved, result.skippedLocations, model.message.value_or(""), json);
    if (!result.skippedLocations.empty()) exitCode = 1;
}

}  // namespace

void addLeftoversCommands(CLI::App& app, int& exitCode) {
    static bool listJson = false;
    auto* leftovers = jsonCommand(&app, "leftovers", "What removed apps left in your Library, by app", listJson);
    leftovers->footer("Names in the Library that are an app's identifier, and no installed or running app has. "
                      "Nothing is moved by this command.");
    leftovers->callback([leftovers] {
        if (leftovers->get_subcommands().empty()) runList(listJson);
    });

    static bool dryRun = false, yes = false, cleanJson = false;
    auto* clean = jsonCommand(leftovers, "clean", "Move the leftovers to the Trash; the history can put them back", cleanJson);
    clean->add_flag("--dry-run", dryRun, "Show what would move, move nothing");
    clean->add_flag("--yes", yes, "Don't ask before moving");
    clean->callback([&exitCode] { runClean(dryRun, yes, cleanJson, exitCode); });
}

}  // namespace cli
