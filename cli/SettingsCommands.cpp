// brimstell settings list | get KEY | set KEY VALUE… | remove KEY

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/ValueParsing.hpp"
#include "kit/settings/SettingsKeys.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace cli {

namespace {

// Times kept as seconds since 1970 also get their date, for people.
std::string valueText(const std::string& key, const quorv::Value& v) {
    std::string text = v.text();
    const auto* known = brimstell::findSettingKey(key);
    double t = 0;
    if (auto d = v.get<quorv::Date>()) t = d->since1970;
    if (known && known->meaning.rfind("time of", 0) == 0) {
        if (auto d = v.get<double>()) t = *d;
    }
    if (t > 0) text += " (" + timeText(t) + ")";
    return text;
}

Json entryJson(const std::string& key, const std::optional<quorv::Value>& v) {
    Json j;
    j["key"] = key;
    if (v) {
        j["type"] = v->typeName();
        j["value"] = toJson(*v);
    } else if (const auto def = brimstell::defaultValue(key)) {
        j["type"] = def->typeName();
        j["value"] = toJson(*def);
        j["isDefault"] = true;
    } else {
        const auto* known = brimstell::findSettingKey(key);
        j["type"] = known ? std::string(brimstell::typeName(known->type)) : std::string();
        j["value"] = nullptr;
    }
    return j;
}

void listSettings(bool all, bool json) {
    auto& store = quorv::settings();
    std::vector<std::string> keys = store.keys();
    if (all) {
        for (const auto& k : brimstell::settingKeys()) keys.emplace_back(k.key);
    }
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    if (json) {
        Json out = Json::array();
        for (const auto& k : keys) out.push_back(entryJson(k, store.object(k)));
        printJson(out);
        return;
    }
    if (keys.empty()) {
        fmt::print("No settings are stored yet (every key has its default; see --all).\n");
        return;
    }
    size_t width = 0;
    for (const auto& k : keys) width = std::max(width, k.size());
    for (const auto& k : keys) {
        const auto v = store.object(k);
        if (v) {
            fmt::print("{:<{}}  {:<10} {}\n", k, width, v->typeName(), valueText(k, *v));
        } else {
            const auto* known = brimstell::findSettingKey(k);
            const std::string def = known && !known->defaultText.empty() ? ", default " + std::string(known->defaultText) : "";
            fmt::print("{:<{}}  {:<10} (not set{})\n", k, width, known ? brimstell::typeName(known->type) : "", def);
        }
    }
}

void getSetting(const std::string& getKey, bool getJson, int& exitCode) {
    const auto v = quorv::settings().object(getKey);
    const auto def = v ? std::nullopt : brimstell::defaultValue(getKey);
    exitCode = v || def ? 0 : 1;
    if (getJson) {
        printJson(entryJson(getKey, v));
    } else if (v) {
        fmt::print("{}\n", valueText(getKey, *v));
    } else if (def) {
        fmt::print("{} (default)\n", valueText(getKey, *def));
    }
    if (!v && !def) {
        error(brimstell::findSettingKey(getKey) ? getKey + " isn't set, and has no default." : getKey + " isn't set.");
    }
}

void setSetting(const std::string& setKey, const std::string& setType, const std::vector<std::string>& setWords, bool setForce,
                bool setJson, int& exitCode) {
    std::optional<brimstell::SettingType> asked;
    if (!setType.empty()) {
        asked = typeNamed(setType);
        if (!asked) {
            error("unknown type \"" + setType + "\" (use boolean, integer, double, string, array or date)");
            exitCode = 2;
            return;
        }
    }
    const auto type = typeFor(setKey, setWords, asked);
    std::string problem;
    const auto value = parseValue(type, setWords, quorv::host().now(), problem);
    if (!value) {
        error(setKey + ": " + problem);
        exitCode = 2;
        return;
    }
    if (const auto refused = brimstell::settingProblem(setKey, *value, setForce)) {
        error(*refused);
        exitCode = 2;
        return;
    }
    if (!quorv::settings().set(setKey, *value)) {
        error("could not write the settings (" + quorv::host().settingsFile() + ")");
        exitCode = 1;
        return;
    }
    if (setJson) {
        printJson(entryJson(setKey, *value));
    } else {
        fmt::print("{} = {} ({})\n", setKey, valueText(setKey, *value), value->typeName());
    }
}

void removeSetting(const std::string& removeKey, int& exitCode) {
    auto& store = quorv::settings();
    const bool existed = store.object(removeKey).has_value();
    if (!store.remove(removeKey)) {
        error("could not write the settings (" + quorv::host().settingsFile() + ")");
        exitCode = 1;
        return;
    }
    if (existed) {
        fmt::print("Removed {}.\n", removeKey);
    } else {
        fmt::print("{} was not set.\n", removeKey);
    }
}

}  // namespace

void addSettingsCommands(CLI::App& app, int& exitCode) {
    auto* settingsCmd = app.add_subcommand("settings", "The settings that app and agent share");
    settingsCmd->require_subcommand(1);
    settingsCmd->footer("Settings live in " + quorv::host().settingsFile());

    static bool listJson = false, listAll = false;
    auto* list = settingsCmd->add_subcommand("list", "List the stored settings");
    list->add_flag("--json", listJson, "Print as JSON");
    list->add_flag("--all", listAll, "Also list the known keys that are not set, with their defaults");
    list->callback([] { listSettings(listAll, listJson); });

    static std::string getKey;
    static bool getJson = false;
    auto* get = settingsCmd->add_subcommand("get", "Show one setting");
    get->add_option("KEY", getKey, "The key, such as warnLowDiskGB")->required();
    get->add_flag("--json", getJson, "Print as JSON");
    get->callback([&exitCode] { getSetting(getKey, getJson, exitCode); });

    static std::string setKey, setType;
    static std::vector<std::string> setWords;
    static bool setJson = false, setForce = false;
    auto* set = settingsCmd->add_subcommand("set", "Store a setting with its type");
    set->add_option("KEY", setKey, "The key")->required();
    set->add_option("VALUE", setWords, "The value; several values make an array of strings");
    set->add_option("--type", setType, "boolean, integer, double, string, array or date (default: the key's own type)");
    set->add_flag("--json", setJson, "Print the stored value as JSON");
    set->add_flag("--force", setForce, "Store a key that isn't one of Brimstell's own");
    set->footer("Brimstell's keys keep their type and range: warnLowDiskGB is an integer of 0 or more,\n"
                "autoClean.frequency is daily, weekly or monthly, and so on. See `brimstell settings list --all`.");
    set->callback([&exitCode] { setSetting(setKey, setType, setWords, setForce, setJson, exitCode); });

    static std::string removeKey;
    auto* remove = settingsCmd->add_subcommand("remove", "Remove a setting, so that its default applies");
    remove->add_option("KEY", removeKey, "The key")->required();
    remove->callback([&exitCode] { removeSetting(removeKey, exitCode); });
}

}  // namespace cli
