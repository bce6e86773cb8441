#include "kit/agent/Agent.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <fmt/format.h>

#include "kit/agent/LoginItemWatch.hpp"
#include "kit/settings/SettingsKeys.hpp"
#include "kit/widget/WidgetFeed.hpp"
#include "kit/cleaning/AutoClean.hpp"
#include "kit/cleaning/JunkModel.hpp"
#include "kit/cleaning/JunkScanner.hpp"
#include "kit/cleaning/Leftovers.hpp"
#include "kit/files/FS.hpp"
#include "kit/health/BatteryFacts.hpp"
#include "kit/health/HealthHistory.hpp"
#include "kit/health/HealthProbe.hpp"
#include "kit/updates/UpdatesModel.hpp"
#include "support/host/Host.hpp"
#include "support/host/PlatformWords.hpp"
#include "support/notify/Notify.hpp"
#include "support/settings/SettingsStore.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

const std::array<LatchRow, 3> Agent::latches = {{
    {AgentJob::lowDisk, keys::alarmLowDisk},
    {AgentJob::batteryWorn, keys::alarmBatteryWorn},
    {AgentJob::diskHealth, keys::alarmDiskHealth},
}};

std::vector<std::string> Agent::latchesToClear(const AgentJobSet& due) {
    std::vector<std::string> out;
    for (const auto& row : latches) {
        if (!due.count(row.job)) out.emplace_back(row.key);
    }
    return out;
}

bool Agent::shouldRun(const std::optional<std::string>& serviceName) {
    return !serviceName || *serviceName == label;
}

AgentRun::AgentRun(quorv::SettingsStore& s, double t) : settings(s), now(t) {}

void AgentRun::alert(const std::string& title, const std::string& body) {
    // The result is not looked at: a latch is set even when notifications are turned off, so the
    // alert isn't repeated when they are turned on again.
    quorv::Notify::send(title, body);
    report.alerts.emplace_back(title, body);
}

bool AgentRun::latched(const char* key) {
    auto v = settings.object(key);
    const bool* b = v ? v->get<bool>() : nullptr;
    return b && *b;
}

void AgentRun::latch(const char* key) {
    settings.set(key, true);
    settingsChanged = true;
}

void AgentRun::unlatch(const char* key) {
    if (settings.object(key)) {
        settings.remove(key);
        settingsChanged = true;
        report.latchesCleared.emplace_back(key);
    }
}

void AgentRun::plan(bool historyDue) {
    report.due = AgentJobs::due(now, settings, historyDue);
    for (const auto& key : Agent::latchesToClear(report.due)) unlatch(key.c_str());
}

void AgentRun::readBattery() {
    if (!isDue(AgentJob::history) && !isDue(AgentJob::batteryWorn)) return;
    battery = HealthProbe::battery();
    if (battery && !battery->healthKnown()) {
        // Without a design or full capacity there is no health to keep, alert on or show.
        report.notes.push_back("battery: " + BatteryFacts::flagText(*battery));
        battery.reset();
    }
}

void AgentRun::keepHistory() {
    if (!isDue(AgentJob::history) || !battery) return;
    auto& history = HealthHistory::shared();
    if (history.record(*battery, now, quorv::host().calendar)) {
        report.filesWritten.push_back(history.file());
        report.notes.push_back(fmt::format("battery: {}% health kept for today", static_cast<long long>(std::trunc(battery->health * 100))));
    }
}

void AgentRun::lowDisk(const VolumeStats& volume) {
    const std::int64_t free = volume.free;
    if (free < 1) return;  // no reading
    std::int64_t limit = 10;
    if (auto v = settings.object(keys::warnLowDiskGB)) {
        if (auto i = v->get<std::int64_t>()) limit = *i;
    }
    // Decimal gigabytes; the clear level sits one gigabyte higher so the alert doesn't flap.
    constexpr std::int64_t gb = 1'000'000'000;
    const std::int64_t cap = INT64_MAX / gb - 1;
    const std::int64_t threshold = std::clamp<std::int64_t>(limit, -cap, cap) * gb;
    const std::int64_t clearLevel = threshold + gb;
    if (free > clearLevel) {
        unlatch(keys::alarmLowDisk);
    } else if (free < threshold && !latched(keys::alarmLowDisk)) {
        latch(keys::alarmLowDisk);
        const auto& h = quorv::host();
        const std::string where = quorv::phrase(quorv::Phrase::startupDisk, h, h.isMac() ? "" : quorv::volumeNameOf(h, "/"));
        alert("Your disk is almost full", "Only " + quorv::formatSize(free) + " free on " + where + ". Open Brimstell to make room.");
    }
}

void AgentRun::batteryWorn() {
    if (!isDue(AgentJob::batteryWorn) || !battery) return;
    const double h = battery->health;
    if (h >= 0.82) {
        unlatch(keys::alarmBatteryWorn);
    } else if (h < 0.8 && !latched(keys::alarmBatteryWorn)) {
        latch(keys::alarmBatteryWorn);
        const auto percent = static_cast<long long>(std::trunc(h * 100));
        alert("Your battery is worn", fmt::format("It holds {}% of what it did new. {}", percent,
                                                  quorv::phrase(quorv::Phrase::wornRule, quorv::host())));
    }
}

void AgentRun::readDisk() {
    if (!isDue(AgentJob::diskHealth)) return;
    const auto reading = HealthProbe::readDisk();
    disk = reading.disk;
    if (!disk) report.notes.push_back("disk: " + reading.problem);
}

void AgentRun::diskHealth() {
    if (!isDue(AgentJob::diskHealth) || !disk) return;
    const std::string& status = disk->smart;
    if (disk->failing()) {
        if (!latched(keys::alarmDiskHealth)) {
            latch(keys::alarmDiskHealth);
            alert("Your disk reports a problem",
                  "Its self-check says " + status + ". Back up now, and have it checked.");
        }
    } else {
        unlatch(keys::alarmDiskHealth);
    }
}

std::optional<std::pair<std::string, std::string>> Agent::leftoversAlert(const std::vector<LeftoverGroup>& groups) {
    LeftoverGroup all;
    for (const auto& g : groups) all.items.insert(all.items.end(), g.items.begin(), g.items.end());
    const std::int64_t total = all.size();
    if (groups.empty() || total <= leftoversAlertBytes) return std::nullopt;
    const std::string size = quorv::formatSize(total);
    return std::pair{groups.size() == 1 ? groups[0].name + " left " + size + " behind" : "Removed apps left " + size + " behind",
                     std::string("Open Brimstell → Applications → Leftovers to clear it.")};
}

void AgentRun::leftovers() {
    if (!isDue(AgentJob::leftovers)) return;
    // The process list is asked only when an app seems gone (or on the first look): most hours
    // nothing was removed, and a start of ps would be most of the run's cost.
    auto current = Leftovers::bundleIDs();
    const auto previous = settings.stringArray(keys::installedApps);
    const auto goneFrom = [&](const std::vector<std::string>& before) {
        return std::count_if(before.begin(), before.end(), [&](const std::string& id) { return current.count(id) == 0; });
    };
    if (!previous || goneFrom(*previous) > 0) Leftovers::addRunning(current);
    if (previous) {
        const auto gone = goneFrom(*previous);
        // Every group found counts, not only those of the apps just removed.
        if (gone > 0) {
            const auto groups = Leftovers::findHere(current);
            LeftoverGroup all;
            for (const auto& g : groups) all.items.insert(all.items.end(), g.items.begin(), g.items.end());
            report.notes.push_back(fmt::format("leftovers: {} app{} gone since the last run; {} left by {} removed app{}",
                                               gone, gone == 1 ? "" : "s", quorv::formatSize(all.size()), groups.size(),
                                               groups.size() == 1 ? "" : "s"));
            if (const auto a = Agent::leftoversAlert(groups)) alert(a->first, a->second);
        }
    } else {
        report.notes.push_back(fmt::format("leftovers: recorded {} installed apps to compare with next time", current.size()));
    }
    settings.set(keys::installedApps, quorv::Value::strings({current.begin(), current.end()}));
    settingsChanged = true;
}

void AgentRun::loginItems() {
    if (!isDue(AgentJob::loginItems)) return;
    const auto current = LoginItemWatch::current();
    std::optional<std::set<std::string>> previous;
    if (auto list = settings.stringArray(keys::loginItems)) previous.emplace(list->begin(), list->end());
    const auto added = LoginItemWatch::added(previous, current);
    const char* body = "Open Brimstell → Startup & Security → Startup to see what they are.";
    const std::string yourMac = quorv::phrase(quorv::Phrase::yourMac, quorv::host());
    if (added.size() == 1) {
        alert(LoginItemWatch::displayName(*added.begin()) + " now starts with " + yourMac, body);
    } else if (added.size() > 1) {
        alert(fmt::format("{} new items start with {}", added.size(), yourMac), body);
    }
    if (!previous) report.notes.push_back(fmt::format("login items: recorded {} to compare with next time", current.size()));
    settings.set(keys::loginItems, quorv::Value::strings({current.begin(), current.end()}));
    settingsChanged = true;
}

void AgentRun::autoClean() {
    if (!isDue(AgentJob::autoClean)) return;
    // The agent has taken the schedule decision itself, so the run counts as asked for and sends
    // nothing; the agent alerts instead.
    AutoClean runner;
    const auto ran = runner.run(true);
    settingsChanged = true;
    if (!ran) {
        // The app is cleaning: "autoClean.lastFreed" is still an earlier run's, already announced.
        report.notes.push_back("auto clean: another clean holds the lock; trying again next hour");
        return;
    }
    const auto freed = settings.integer(keys::autoCleanLastFreed);
    report.notes.push_back("auto clean: " + runner.message.value_or(""));
    if (freed >= 1) {
        alert("Auto Clean freed " + quorv::formatSize(freed), "Everything it moved is in History, ready to restore.");
    }
}

std::optional<std::pair<std::string, std::string>> Agent::updatesAlert(std::size_t found) {
    if (found == 0) return std::nullopt;
    return std::pair{fmt::format("{} app update{} available", found, found == 1 ? "" : "s"),
                     std::string("Open Brimstell → Applications → App Updates to see them.")};
}

void AgentRun::updates() {
    if (!isDue(AgentJob::updates)) return;
    UpdatesModel model;  // writes "updatesLastCheck"
    model.check();
    settingsChanged = true;
    report.notes.push_back(fmt::format("updates: {} found, {} up to date, {} not reached, {} can't be checked",
                                       model.updates.size(), model.upToDate, model.failed.size(), model.cantCheck.size()));
    if (const auto a = Agent::updatesAlert(model.updates.size())) alert(a->first, a->second);
}

void AgentRun::measureJunk() {
    if (!(now - settings.number(keys::junkMeasured) > Agent::junkMeasureInterval)) return;
    const std::string home = FS::home();
    junk = JunkModel::autoCleanShare(JunkScanner::scan(home));
    settings.set(keys::junkMeasured, now);
    settingsChanged = true;
    report.notes.push_back("junk: " + quorv::formatSize(*junk) + " that Auto Clean may take");
}

void AgentRun::finish() {
    if (auto written = WidgetFeed::update(junk, battery, disk)) report.filesWritten.push_back(*written);
    settings.synchronize();
}

AgentReport Agent::run() {
    auto& settings = quorv::settings();
    settings.synchronize();  // start from what the app last wrote
    AgentRun run(settings, quorv::host().now());

    run.plan(HealthHistory::shared().due(run.now, quorv::host().calendar));
    run.readBattery();
    run.keepHistory();

    if (run.isDue(AgentJob::lowDisk)) {
        const std::string startup = quorv::host().path("/");
        run.lowDisk(FS::volumeStats(startup));
    }
    run.batteryWorn();
    run.readDisk();
    run.diskHealth();
    run.leftovers();
    run.loginItems();
    run.autoClean();
    run.updates();
    run.measureJunk();
    run.finish();

    if (run.settingsChanged && !quorv::host().settingsFile().empty()) {
        run.report.filesWritten.insert(run.report.filesWritten.begin(), quorv::host().settingsFile());
    }
    return run.report;
}

}  // namespace brimstell
