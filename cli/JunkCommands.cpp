// brimstell junk | clean

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/cleaning/LinuxJunkCatalogue.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::JunkCategory;
using brimstell::JunkModel;

// What the history calls a clean started from here.
constexpr const char* junkSource = "Junk";

// Scans with the spinner saying how far it has got; says on standard error when the system part
// could not be looked at.
void scanWithProgress(JunkModel& model) {
    {
        Spinner spinner(std::string(JunkModel::lookingText) + "…");
        model.onChange = [&spinner](const JunkModel& m) {
            std::string text = m.activity.empty() ? std::string(JunkModel::lookingText) : m.activity;
            if (m.progressTotal > 0 && m.activity == JunkModel::lookingText) {
                text += fmt::format(" ({} of {})", m.progressDone, m.progressTotal);
            }
            spinner.setText(text + "…");
        };
        model.scan();
        model.onChange = nullptr;
    }
    if (model.activity == JunkModel::adminUnavailableText) {
        error(std::string(JunkModel::adminUnavailableText) + ": system caches and logs were not looked at");
    }
}

std::int64_t tickedSize(const JunkCategory& c) {
    std::int64_t size = 0;
    for (const auto& item : c.items) {
        if (item.selected && item.size > 0) size += item.size;
    }
    return size;
}

Json itemJson(const brimstell::FileItem& item) {
    Json j = Json::object();
    putPath(j, "path", item.location);
    j["label"] = item.label;
    j["bytes"] = item.size;
    j["selected"] = item.selected;
    return j;
}

Json categoryJson(const JunkCategory& c, bool withItems) {
    Json j = Json::object();
    j["name"] = c.name;
    j["icon"] = c.icon;
    j["note"] = c.note;
    j["enabled"] = c.enabled;
    j["admin"] = c.admin;
    j["group"] = std::string(brimstell::cacheKindName(c.group));
    j["bytes"] = c.total();
    j["itemCount"] = c.items.size();
    if (withItems) {
        Json items = Json::array();
        for (const auto& item : c.items) items.push_back(itemJson(item));
        j["items"] = std::move(items);
    }
    return j;
}

void printItems(const JunkCategory& c) {
    for (const auto& item : c.items) {
        fmt::print("      [{}] {:>9}  {}  {}\n", item.selected ? "x" : " ", quorv::formatSize(item.size),
                   shownPath(item.label), shownPath(item.location));
    }
}

void printCategories(const std::vector<JunkCategory>& cats, bool withItems) {
    std::size_t width = 0;
    for (const auto& c : cats) width = std::max(width, c.name.size());
    for (const auto& c : cats) {
        fmt::print("  [{}] {:<{}}  {:>9}  {}\n", c.enabled ? "x" : " ", c.name, width, quorv::formatSize(c.total()),
                   itemsText(c.items.size()));
        if (withItems) printItems(c);
    }
}

void runJunk(bool json, bool withItems) {
    JunkModel model;
    scanWithProgress(model);
    if (json) {
        Json cats = Json::array();
        for (const auto& c : model.cats) cats.push_back(categoryJson(c, withItems));
        printJson(Json{{"categories", std::move(cats)}, {"tickedBytes", model.total}, {"movableBytes", model.movable}});
        return;
    }
    if (model.cats.empty()) {
        fmt::print("No junk found.\n");
        return;
    }
    printCategories(model.cats, withItems);
    fmt::print("Ticked: {}. `brimstell clean` moves it to the Trash; `brimstell history` puts it back.\n",
               quorv::formatSize(model.total));
    // Both figures only when they differ: the unticked items of ticked categories stay.
    if (model.movable != model.total) {
        fmt::print("A clean moves {} of it: the items unticked inside ticked categories stay.\n",
                   quorv::formatSize(model.movable));
    }
}

// Ticks exactly the named categories; false (and a message) for a name no category has.
bool chooseCategories(JunkModel& model, const std::vector<std::string>& names) {
    std::set<std::string> known;
    for (const auto& rule : brimstell::JunkCatalogue::categories()) known.insert(std::string(rule.name));
    for (const auto& rule : brimstell::JunkCatalogue::developerCategories()) known.insert(std::string(rule.name));
    for (const auto& rule : brimstell::LinuxJunkCatalogue::categories()) known.insert(std::string(rule.name));
    for (const auto& c : model.cats) known.insert(c.name);
    for (const auto& name : names) {
        if (known.count(name) == 0) {
            error(fmt::format("there is no category \"{}\"; `brimstell junk` lists them", name));
            return false;
        }
    }
    const std::set<std::string> chosen(names.begin(), names.end());
    for (auto& c : model.cats) c.enabled = chosen.count(c.name) != 0;
    model.recount();
    return true;
}


void runClean(const std::vector<std::string>& categories, bool dryRun, bool yes, bool json, int& exitCode) {
    JunkModel model;
    scanWithProgress(model);
    if (!categories.empty() && !chooseCategories(model, categories)) {
        exitCode = 2;
        return;
    }
    const auto items = JunkModel::tickedItems(model.cats);
    std::vector<JunkCategory> ticked;
    for (const auto& c : model.cats) {
        if (c.enabled && tickedSize(c) > 0) ticked.push_back(c);
    }

    if (items.empty()) {
        if (json) {
            printJson(Json{{"dryRun", dryRun}, {"freedBytes", 0}, {"movedItems", 0}, {"skipped", Json::array()}});
        } else {
            fmt::print("Nothing to clean.\n");
        }
        return;
    }
    if (dryRun) {
        if (json) {
            Json cats = Json::array();
            for (const auto& c : ticked) cats.push_back(categoryJson(c, true));
            printJson(Json{{"dryRun", true}, {"categories", std::move(cats)}, {"wouldFreeBytes", model.movable}});
            return;
        }
        printCategories(ticked, true);
        fmt::print("Would move {} ({}) to the Trash.\n", itemsText(items.size()), quorv::formatSize(model.movable));
        return;
    }
    if (!json) printCategories(ticked, false);
    if (!goAhead(fmt::format("Move {} ({}) to the Trash?", itemsText(items.size()), quorv::formatSize(model.movable)), yes,
                 "moving " + itemsText(items.size()), "Nothing moved.", exitCode)) {
        return;
    }
    brimstell::JunkCleanResult result;
    {
        Spinner spinner("Moving to the Trash…");
        result = model.clean(std::string(junkSource));
    }
    if (result.busy) {
        error(brimstell::CleanLock::busyText);
        exitCode = 1;
        return;
    }
    printCleanResult(result.freed, result.moved, result.skippedLocations, model.message.value_or(""), json);
    if (result.skipped > 0) exitCode = 1;
}

}  // namespace

void addJunkCommands(CLI::App& app, int& exitCode) {
    static bool junkJson = false, junkItems = false;
    auto* junk = app.add_subcommand("junk", "Find caches, logs and other junk, and show what a clean would move");
    junk->add_flag("--json", junkJson, "Print as JSON");
    junk->add_flag("--items", junkItems, "List every item under its category");
    junk->footer("[x] marks the categories `brimstell clean` moves by default. Nothing is moved by this command.");
    junk->callback([] { runJunk(junkJson, junkItems); });

    static std::vector<std::string> cleanCategories;
    static bool cleanDryRun = false, cleanYes = false, cleanJson = false;
    auto* clean = app.add_subcommand("clean", "Move the ticked junk to the Trash; the history can put it all back");
    clean->add_option("--category", cleanCategories, "Clean this category instead of the ticked ones (repeatable)")
        ->type_name("NAME");
    clean->add_flag("--dry-run", cleanDryRun, "Show what would move, move nothing");
    clean->add_flag("--yes", cleanYes, "Don't ask before moving");
    clean->add_flag("--json", cleanJson, "Print as JSON");
    clean->callback([&exitCode] { runClean(cleanCategories, cleanDryRun, cleanYes, cleanJson, exitCode); });
}

}  // namespace cli
