// brimstell autoclean status | on | off | run | preview

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/settings/SettingsKeys.hpp"
#include "kit/cleaning/AutoClean.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "kit/cleaning/CleanLock.hpp"
#include "support/settings/SettingsStore.hpp"
#include "support/text/SizeText.hpp"

namespace cli {

namespace {

using brimstell::AutoClean;
using brimstell::AutoCleanRules;

struct Options {
    std::string frequency;
    int trashDays = -1;      // -1: leave as it is; 0: rule off
    int downloadsDays = -1;
};

void printStatus(bool json) {
    auto& settings = quorv::settings();
    settings.synchronize();
    const auto s = AutoCleanRules::settingsFrom(settings);
    const auto next = AutoClean::nextRun();
    const std::string frequency(AutoCleanRules::name(s.frequency));
    if (json) {
        Json j;
        j["enabled"] = s.enabled;
        j["frequency"] = frequency;
        j["junk"] = s.junk;
        j["emptyTrash"] = s.emptyTrash;
        j["emptyTrashDays"] = s.emptyTrashDays;
        j["downloads"] = s.downloads;
        j["downloadsDays"] = s.downloadsDays;
        j["lastRunAt"] = dateJson(s.lastRun);
        j["lastFreedBytes"] = s.lastFreed;
        j["nextRunAt"] = next ? dateJson(*next) : Json(nullptr);
        printJson(j);
        return;
    }
    fmt::print("Auto Clean: {}, {}\n", s.enabled ? "on" : "off", frequency);
    fmt::print("  Junk ticked by default: {}\n", s.junk ? "moved to the Trash" : "left alone");
    if (s.emptyTrash) {
        fmt::print("  Trash items older than {} days: deleted for good\n", s.emptyTrashDays);
    } else {
        fmt::print("  Trash: left alone\n");
    }
    if (s.downloads) {
        fmt::print("  Downloads untouched for {} days: moved to the Trash\n", s.downloadsDays);
    } else {
        fmt::print("  Downloads: left alone\n");
    }
    if (s.lastRun > 0 && s.ranOnce) {
        fmt::print("Last run: {}, freed {}\n", timeText(s.lastRun), quorv::formatSize(s.lastFreed));
    } else {
        fmt::print("Last run: never\n");
    }
    if (next) fmt::print("Next run: {}\n", timeText(*next));
}

void applyOptions(const Options& o) {
    auto& settings = quorv::settings();
    if (!o.frequency.empty()) settings.set(brimstell::keys::autoCleanFrequency, o.frequency);
    if (o.trashDays >= 0) {
        settings.set(brimstell::keys::autoCleanEmptyTrash, o.trashDays > 0);
        if (o.trashDays > 0) settings.set(brimstell::keys::autoCleanEmptyTrashDays, o.trashDays);
    }
    if (o.downloadsDays >= 0) {
        settings.set(brimstell::keys::autoCleanDownloads, o.downloadsDays > 0);
        if (o.downloadsDays > 0) settings.set(brimstell::keys::autoCleanDownloadsDays, o.downloadsDays);
    }
}

void printPreview(bool json) {
    AutoClean autoClean;
    brimstell::AutoCleanPreview p;
    {
        Spinner spinner("Measuring what Auto Clean would free…");
        p = autoClean.computePreview();
    }
    if (json) {
        printJson(Json{{"junkBytes", p.junk}, {"trashBytes", p.trash}, {"downloadsBytes", p.downloads}, {"totalBytes", p.total()}});
        return;
    }
    const auto s = AutoCleanRules::settingsFrom(quorv::settings());
    fmt::print("  Junk ticked by default: {}\n", s.junk ? quorv::formatSize(p.junk) : "off");
    fmt::print("  Old Trash items:        {}\n", s.emptyTrash ? quorv::formatSize(p.trash) : "off");
    fmt::print("  Old Downloads:          {}\n", s.downloads ? quorv::formatSize(p.downloads) : "off");
    fmt::print("A run now would free {}.\n", quorv::formatSize(p.total()));
}

void runNow(bool json, int& exitCode) {
    AutoClean autoClean;
    std::optional<std::int64_t> freed;
    {
        Spinner spinner("Auto Clean is running…");
        freed = autoClean.run(true);
    }
    if (!freed) {
        error(brimstell::CleanLock::busyText);
        exitCode = 1;
        return;
    }
    if (json) {
        printJson(Json{{"freedBytes", *freed}, {"message", autoClean.message.value_or("")}});
    } else {
        fmt::print("{}\n", autoClean.message.value_or(""));
        if (*freed > 0) fmt::print("Everything it moved is in History, ready to restore (brimstell history).\n");
    }
}

}  // namespace

void addAutoCleanCommands(CLI::App& app, int& exitCode) {
    static Options options;
    static bool json = false;
    auto* group = app.add_subcommand("autoclean", "Clean on a schedule without asking: safe junk, old Trash items, old Downloads");
    group->require_subcommand(1);
    // --json goes with the group or with any of its commands.
    group->add_flag("--json", json, "Print as JSON");
    const auto sub = [group](const char* name, const char* description) { return jsonCommand(group, name, description, json); };

    sub("status", "Show the rules, the last run and the next")->callback([] { printStatus(json); });

    auto* on = sub("on", "Switch Auto Clean on (the first run comes one period later)");
    on->add_option("--frequency", options.frequency, "How often it runs")->check(CLI::IsMember({"daily", "weekly", "monthly"}));
    on->add_option("--trash-days", options.trashDays, "Delete for good Trash items older than DAYS days; 0 leaves the Trash alone")
        ->check(CLI::Range(0, 3650))
        ->type_name("DAYS");
    on->add_option("--downloads-days", options.downloadsDays,
                   "Move to the Trash Downloads items untouched for DAYS days; 0 leaves Downloads alone")
        ->check(CLI::Range(0, 3650))
        ->type_name("DAYS");
    on->callback([] {
        applyOptions(options);
        quorv::settings().set(brimstell::keys::autoCleanEnabled, true);
        AutoClean::turnedOn();
        printStatus(json);
    });

    sub("off", "Switch Auto Clean off")->callback([] {
        quorv::settings().set(brimstell::keys::autoCleanEnabled, false);
        if (json) {
            printJson(Json{{"enabled", false}});
        } else {
            fmt::print("Auto Clean is off.\n");
        }
    });

    sub("run", "Run Auto Clean now, whatever the schedule says")->callback([&exitCode] { runNow(json, exitCode); });
    sub("preview", "Measure what a run would free, moving nothing")->callback([] { printPreview(json); });
}

}  // namespace cli
