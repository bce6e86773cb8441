// brimstell startup [disable|enable|remove LABEL]

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/insight/BackgroundModel.hpp"
#include "support/host/Host.hpp"

namespace cli {

namespace {

using brimstell::BackgroundItem;
using brimstell::BackgroundModel;
using brimstell::LoginItem;
using brimstell::Signature;
using Scope = brimstell::BackgroundItem::Scope;

void load(BackgroundModel& model) {
    Spinner spinner("Looking at what starts with the computer…");
    model.load();
}

const char* scopeWord(Scope s) {
    switch (s) {
        case Scope::user: return "user";
        case Scope::allUsers: return "allUsers";
        case Scope::system: return "system";
    }
    return "";
}

Json signatureJson(const std::optional<Signature>& s) {
    if (!s) return nullptr;
    Json j{{"kind", Signature::kindName(s->kind)}, {"notarised", s->notarised}, {"note", s->summary()}};
    j["developer"] = s->developer ? Json(*s->developer) : Json(nullptr);
    return j;
}

Json itemJson(const BackgroundItem& i, double now) {
    Json j = Json::object();
    j["label"] = i.label;
    j["name"] = i.shownName();
    j["listedName"] = i.listedName ? Json(*i.listedName) : Json(nullptr);
    putPath(j, "path", i.plist);
    if (i.program) putPath(j, "programPath", *i.program);
    j["scope"] = scopeWord(i.scope);
    j["enabled"] = i.enabled;
    j["running"] = i.running;
    j["signature"] = signatureJson(i.signature);
    if (i.provenance) j["package"] = i.provenance->package ? Json(*i.provenance->package) : Json(nullptr);
    j["addedAt"] = i.added ? dateJson(*i.added) : Json(nullptr);
    j["notes"] = i.notes(now);
    j["worthALook"] = i.worthALook(now);
    return j;
}

Json loginJson(const LoginItem& i) {
    Json j = Json::object();
    j["id"] = i.id;
    j["name"] = i.name;
    j["kind"] = i.kind == LoginItem::Kind::app ? "app" : "inside";
    putPath(j, "path", i.url);
    j["appName"] = i.appName ? Json(*i.appName) : Json(nullptr);
    if (i.appURL) putPath(j, "appPath", *i.appURL);
    j["bundleId"] = i.bundleID ? Json(*i.bundleID) : Json(nullptr);
    j["enabled"] = i.enabled;
    j["signature"] = signatureJson(i.signature);
    j["worthALook"] = i.worthALook();
    return j;
}

void printJsonScan(const BackgroundModel& model, double now) {
    Json items = Json::array(), login = Json::array();
    for (const auto& i : model.scan.items) items.push_back(itemJson(i, now));
    for (const auto& i : model.scan.login) login.push_back(loginJson(i));
    printJson(Json{{"items", std::move(items)}, {"login", std::move(login)}, {"loginKnown", model.scan.loginKnown},
                   {"note", model.loginNote}, {"worthALookItems", model.worthALook()}});
}

std::string stateText(bool enabled, bool running) {
    return std::string(enabled ? "on" : "off") + (running ? " · running" : "");
}

void printItem(const BackgroundItem& i, double now) {
    fmt::print("  {}  ({})\n", i.shownName(), stateText(i.enabled, i.running));
    if (i.listedName && *i.listedName != i.shownName()) fmt::print("    listed as {}\n", *i.listedName);
    fmt::print("    {}  {}\n", i.label, shownPath(i.plist));
    if (i.signature) fmt::print("    {}\n", i.signature->summary());
    if (i.provenance) fmt::print("    {}\n", i.provenance->summary());
    for (const auto& note : i.notes(now)) fmt::print("    ! {}\n", note);
}

void printLogin(const BackgroundModel& model, LoginItem::Kind kind, const char* caption) {
    fmt::print("\n{}{}\n", caption, model.scan.loginKnown ? "" : model.loginNote);
    for (const auto& i : model.scan.login) {
        if (i.kind != kind) continue;
        fmt::print("  {}  ({})\n", i.name, i.enabled ? "on" : "off");
        if (i.appName) fmt::print("    in {}\n", *i.appName);
        if (i.signature) fmt::print("    {}\n", i.signature->summary());
    }
}

void runList(bool json) {
    BackgroundModel model;
    load(model);
    const double now = quorv::host().now();
    if (json) return printJsonScan(model, now);
    for (const Scope scope : {Scope::user, Scope::allUsers, Scope::system}) {
        fmt::print("{}{}\n", scope == Scope::user ? "" : "\n", BackgroundItem::caption(scope));
        for (const auto& i : model.scan.items)
            if (i.scope == scope) printItem(i, now);
    }
    // Login items are the background-task database's; a host without one (Linux, whose autostart
    // entries stand above) has neither those sections nor a note about them.
    if (model.scan.loginKnown || !model.loginNote.empty()) {
        printLogin(model, LoginItem::Kind::app, BackgroundItem::appsCaption);
        printLogin(model, LoginItem::Kind::inside, BackgroundItem::helpersCaption);
    }
    if (model.scan.loginKnown) fmt::print("  {}\n", LoginItem::note);
    const auto n = model.worthALook();
    if (n == 0) fmt::print("\n{}\n", BackgroundModel::nothingText);
    else fmt::print("\n{} worth a look\n", itemsText(n));
}

}  // namespace

namespace {

// The item named by label (or by its plist's path); an error and status 1 when there is none.
const BackgroundItem* itemNamed(const BackgroundModel& model, const std::string& label, int& exitCode) {
    const auto* item = model.find(label);
    if (!item) {
        error("no launch item is labelled " + label);
        exitCode = 1;
    }
    return item;
}

void printOutcome(const BackgroundModel& model, bool ok, const std::string& done, bool json, int& exitCode) {
    const std::string text = ok ? model.message.value_or(done) : model.message.value_or(BackgroundModel::failedText);
    if (json) printJson(ok ? Json{{"done", true}, {"message", text}} : Json{{"done", false}, {"error", text}});
    else if (ok) fmt::print("{}\n", text);
    else error(text);
    if (!ok) exitCode = 1;
}

void runSwitch(const std::string& label, bool on, bool json, int& exitCode) {
    BackgroundModel model;
    load(model);
    const auto* item = itemNamed(model, label, exitCode);
    if (!item) return;
    const std::string done = item->shownName() + (on ? " is switched on" : " is switched off");
    if (item->enabled == on) return printOutcome(model, true, done, json, exitCode);
    printOutcome(model, model.toggle(*item), done, json, exitCode);
}

void runRemove(const std::string& label, bool yes, bool json, int& exitCode) {
    BackgroundModel model;
    load(model);
    const auto* item = itemNamed(model, label, exitCode);
    if (!item) return;
    if (!item->programGone()) {
        model.message = BackgroundModel::notLeftoverText;
        return printOutcome(model, false, "", json, exitCode);
    }
    if (!json) fmt::print("{}: {}\n", item->shownName(), BackgroundModel::removeHint);
    if (!goAhead("Move " + shownPath(item->plist) + " to the Trash?", yes, "removing " + item->label, "Nothing moved.",
                 exitCode))
        return;
    const auto copy = *item;
    printOutcome(model, model.remove(copy), "", json, exitCode);
}

}  // namespace

void addStartupCommands(CLI::App& app, int& exitCode) {
    static bool listJson = false;
    auto* startup = jsonCommand(&app, "startup", "What starts with the computer, with signatures and notes", listJson);
    startup->callback([startup] {
        if (startup->get_subcommands().empty()) runList(listJson);
    });
    static std::string label;
    static bool switchJson = false, yes = false;
    for (const bool on : {false, true}) {
        auto* command = jsonCommand(startup, on ? "enable" : "disable",
                                    on ? "Switch a launch item on" : "Switch a launch item off", switchJson);
        command->add_option("label", label, "The item's launchd label")->required();
        command->callback([on, &exitCode] { runSwitch(label, on, switchJson, exitCode); });
    }
    auto* remove = jsonCommand(startup, "remove", "Move a leftover launch item (its app is gone) to the Trash", switchJson);
    remove->add_option("label", label, "The item's launchd label")->required();
    remove->add_flag("--yes", yes, "Don't ask before moving");
    remove->callback([&exitCode] { runRemove(label, yes, switchJson, exitCode); });
}

}  // namespace cli
