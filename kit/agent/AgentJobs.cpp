#include "kit/agent/AgentJob.hpp"

#include "kit/agent/SettingsKeys.hpp"
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

double AgentJobs::nextAutoClean(double last, std::string_view frequency) {
    const auto& calendar = quorv::host().calendar;
    std::optional<double> next;
    if (frequency == "daily") {
        next = calendar.addDays(last, 1);
    } else if (frequency == "monthly") {
        next = calendar.addMonths(last, 1);
    } else {
        next = calendar.addWeeks(last, 1);
    }
    return next.value_or(last);
}

AgentJobSet AgentJobs::due(double now, quorv::SettingsStore& settings, bool historyDue) {
    AgentJobSet due;
    if (historyDue) due.insert(AgentJob::history);
    if (settings.unlessFalse(keys::warnLowDisk)) due.insert(AgentJob::lowDisk);

    if (settings.boolean(keys::autoCleanEnabled)) {
        // A schedule that never ran is started by the app, which also sets the key.
        const double last = settings.number(keys::autoCleanLastRun);
        if (last > 0) {
            const std::string frequency = settings.string(keys::autoCleanFrequency).value_or("weekly");
            if (now >= nextAutoClean(last, frequency)) due.insert(AgentJob::autoClean);
        }
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
