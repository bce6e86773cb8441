#include "kit/agent/AgentJob.hpp"

#include "kit/settings/SettingsKeys.hpp"
#include "kit/cleaning/AutoCleanRules.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

namespace {
constexpr std::string_view names[] = {"history", "lowDisk", "autoClean", "updates",
                                      "batteryWorn", "diskHealth", "leftovers", "loginItems"};
}

std::string_view jobName(AgentJob job) { return names[static_cast<int>(job)]; }

std::optional<AgentJob> jobNamed(std::string_view name) {
    for (int i = 0; i < 8; ++i) {
        if (names[i] == name) return static_cast<AgentJob>(i);
    }
    return std::nullopt;
}

AgentJobSet AgentJobs::due(double now, quorv::SettingsStore& settings, bool historyDue) {
    AgentJobSet due;
    if (historyDue) due.insert(AgentJob::history);
    if (settings.unlessFalse(keys::warnLowDisk)) due.insert(AgentJob::lowDisk);

    if (settings.boolean(keys::autoCleanEnabled)) {
        // A schedule that never ran is started by the app, which also sets the key.
        // Any word other than daily or monthly, and an absent key, counts as weekly.
        const auto frequency = AutoCleanRules::frequencyNamed(settings.string(keys::autoCleanFrequency).value_or(""))
                                   .value_or(AutoCleanRules::Frequency::weekly);
        const auto next = AutoCleanRules::nextRun(settings.number(keys::autoCleanLastRun), frequency, quorv::host().calendar);
        if (next && now >= *next) due.insert(AgentJob::autoClean);
    }

    if (settings.boolean(keys::checkUpdatesWeekly)) {
        const auto last = settings.date(keys::updatesLastCheck);
        if (!last || now - last->since1970 >= updateInterval) due.insert(AgentJob::updates);
    }

    if (settings.boolean(keys::warnBatteryWorn)) due.insert(AgentJob::batteryWorn);
    if (settings.boolean(keys::warnDiskHealth)) due.insert(AgentJob::diskHealth);
    if (settings.unlessFalse(keys::warnLeftovers)) due.insert(AgentJob::leftovers);
    if (settings.unlessFalse(keys::warnLoginItems)) due.insert(AgentJob::loginItems);
    return due;
}

}  // namespace brimstell
