#include <gtest/gtest.h>

#include <ctime>

#include "kit/agent/Agent.hpp"
#include "kit/agent/AgentJob.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::AgentJob;
using brimstell::AgentJobSet;
using quorv::Value;

using testing_support::utc;

// The three jobs that are on when nothing is set.
const AgentJobSet optOut = {AgentJob::lowDisk, AgentJob::leftovers, AgentJob::loginItems};

AgentJobSet with(AgentJobSet base, std::initializer_list<AgentJob> more) {
    base.insert(more);
    return base;
}

AgentJobSet without(AgentJobSet base, std::initializer_list<AgentJob> less) {
    for (auto j : less) base.erase(j);
    return base;
}

struct DueCase {
    const char* name;
    std::vector<std::pair<std::string, Value>> settings;
    double now;
    bool historyDue;
    AgentJobSet expected;
};

TEST(AgentJobs, DueRules) {
    const double jan31 = utc(2026, 1, 31, 9, 30);
    const double monday = utc(2026, 11, 16, 8, 0);
    const std::vector<DueCase> cases = {
        {"nothing set: the opt-out jobs", {}, monday, false, optOut},
        {"history when the day lacks a reading", {}, monday, true, with(optOut, {AgentJob::history})},
        {"warnLowDisk false turns it off", {{"warnLowDisk", false}}, monday, false, without(optOut, {AgentJob::lowDisk})},
        {"warnLowDisk as the string no stays on", {{"warnLowDisk", "no"}}, monday, false, optOut},
        {"warnLeftovers as the string no stays on", {{"warnLeftovers", "no"}}, monday, false, optOut},
        {"warnLeftovers integer 0 stays on", {{"warnLeftovers", 0}}, monday, false, optOut},
        {"warnLeftovers false turns it off", {{"warnLeftovers", false}}, monday, false, without(optOut, {AgentJob::leftovers})},
        {"warnLoginItems false turns it off", {{"warnLoginItems", false}}, monday, false, without(optOut, {AgentJob::loginItems})},
        {"warnDiskHealth absent: not due", {}, monday, false, optOut},
        {"warnDiskHealth true", {{"warnDiskHealth", true}}, monday, false, with(optOut, {AgentJob::diskHealth})},
        {"warnBatteryWorn true", {{"warnBatteryWorn", true}}, monday, false, with(optOut, {AgentJob::batteryWorn})},
        {"warnBatteryWorn as the string YES reads true", {{"warnBatteryWorn", "YES"}}, monday, false, with(optOut, {AgentJob::batteryWorn})},

        // Auto Clean
        {"autoClean enabled, never run: not due", {{"autoClean.enabled", true}, {"autoClean.lastRun", 0.0}}, monday, false, optOut},
        {"autoClean not enabled", {{"autoClean.lastRun", monday - 30 * 86400.0}}, monday, false, optOut},
        {"weekly by default, a second short", {{"autoClean.enabled", true}, {"autoClean.lastRun", monday - 604800 + 1}}, monday, false, optOut},
        {"weekly by default, exactly a week", {{"autoClean.enabled", true}, {"autoClean.lastRun", monday - 604800}}, monday, false, with(optOut, {AgentJob::autoClean})},
        {"unknown word counts as weekly (6 days)", {{"autoClean.enabled", true}, {"autoClean.frequency", "fortnightly"}, {"autoClean.lastRun", monday - 6 * 86400.0}}, monday, false, optOut},
        {"unknown word counts as weekly (7 days)", {{"autoClean.enabled", true}, {"autoClean.frequency", "fortnightly"}, {"autoClean.lastRun", monday - 7 * 86400.0}}, monday, false, with(optOut, {AgentJob::autoClean})},
        {"daily after a day", {{"autoClean.enabled", true}, {"autoClean.frequency", "daily"}, {"autoClean.lastRun", monday - 86400.0}}, monday, false, with(optOut, {AgentJob::autoClean})},
        {"daily a second early", {{"autoClean.enabled", true}, {"autoClean.frequency", "daily"}, {"autoClean.lastRun", monday - 86399.0}}, monday, false, optOut},
        {"monthly from 31 January: not on 27 February", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", jan31}}, utc(2026, 2, 27, 9, 30), false, optOut},
        {"monthly from 31 January: due on 28 February", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", jan31}}, utc(2026, 2, 28, 9, 30), false, with(optOut, {AgentJob::autoClean})},
        {"monthly from 31 January: not a minute before", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", jan31}}, utc(2026, 2, 28, 9, 29), false, optOut},
        {"monthly in a leap year waits for 29 February", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", utc(2028, 1, 31, 9, 30)}}, utc(2028, 2, 28, 23, 0), false, optOut},
        {"monthly in a leap year: 29 February", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", utc(2028, 1, 31, 9, 30)}}, utc(2028, 2, 29, 9, 30), false, with(optOut, {AgentJob::autoClean})},
        {"monthly across the year end", {{"autoClean.enabled", true}, {"autoClean.frequency", "monthly"}, {"autoClean.lastRun", utc(2026, 12, 15)}}, utc(2027, 1, 15), false, with(optOut, {AgentJob::autoClean})},

        // Updates
        {"updates off by default", {}, monday, false, optOut},
        {"updates on, never checked", {{"checkUpdatesWeekly", true}}, monday, false, with(optOut, {AgentJob::updates})},
        {"updates checked 604799 s ago", {{"checkUpdatesWeekly", true}, {"updatesLastCheck", quorv::Date{monday - 604799}}}, monday, false, optOut},
        {"updates checked exactly 604800 s ago", {{"checkUpdatesWeekly", true}, {"updatesLastCheck", quorv::Date{monday - 604800}}}, monday, false, with(optOut, {AgentJob::updates})},
        {"updatesLastCheck that is not a date: never checked", {{"checkUpdatesWeekly", true}, {"updatesLastCheck", monday}}, monday, false, with(optOut, {AgentJob::updates})},
        {"everything on", {{"warnBatteryWorn", true}, {"warnDiskHealth", true}, {"checkUpdatesWeekly", true}, {"autoClean.enabled", true}, {"autoClean.lastRun", 1.0}}, monday, true,
         {AgentJob::history, AgentJob::lowDisk, AgentJob::autoClean, AgentJob::updates, AgentJob::batteryWorn, AgentJob::diskHealth, AgentJob::leftovers, AgentJob::loginItems}},
    };
    for (const auto& c : cases) {
        testing_support::SandboxHost sandbox(c.now);
        quorv::HostScope scope(sandbox.host);
        auto& store = *sandbox.host->settings;
        for (const auto& [k, v] : c.settings) store.set(k, v);
        EXPECT_EQ(brimstell::AgentJobs::due(c.now, store, c.historyDue), c.expected) << c.name;
    }
}

TEST(AgentJobs, LatchesToClearFollowTheTableOrder) {
    const struct {
        AgentJobSet due;
        std::vector<std::string> expected;
    } cases[] = {
        {{}, {"agent.alarm.lowDisk", "agent.alarm.batteryWorn", "agent.alarm.diskHealth"}},
        {optOut, {"agent.alarm.batteryWorn", "agent.alarm.diskHealth"}},
        {{AgentJob::batteryWorn}, {"agent.alarm.lowDisk", "agent.alarm.diskHealth"}},
        {{AgentJob::lowDisk, AgentJob::batteryWorn, AgentJob::diskHealth}, {}},
        {{AgentJob::diskHealth, AgentJob::history}, {"agent.alarm.lowDisk", "agent.alarm.batteryWorn"}},
    };
    for (const auto& c : cases) EXPECT_EQ(brimstell::Agent::latchesToClear(c.due), c.expected);
}

TEST(AgentJobs, ServiceNameDecidesWhetherToRun) {
    EXPECT_TRUE(brimstell::Agent::shouldRun(std::nullopt));
    EXPECT_TRUE(brimstell::Agent::shouldRun(std::string("com.quorv.brimstell.agent")));
    EXPECT_FALSE(brimstell::Agent::shouldRun(std::string("com.quorv.brimstell.agent.other")));
    EXPECT_FALSE(brimstell::Agent::shouldRun(std::string("com.apple.Terminal")));
    EXPECT_FALSE(brimstell::Agent::shouldRun(std::string("")));
}

TEST(Calendar, MonthArithmeticClampsToMonthEnds) {
    quorv::Calendar cal;
    cal.utc = true;
    const struct {
        double from;
        int months;
        double expected;
    } cases[] = {
        {utc(2026, 1, 31, 12), 1, utc(2026, 2, 28, 12)},
        {utc(2028, 1, 31, 12), 1, utc(2028, 2, 29, 12)},
        {utc(2026, 3, 31), 1, utc(2026, 4, 30)},
        {utc(2026, 12, 31), 2, utc(2027, 2, 28)},
        {utc(2026, 3, 31), -1, utc(2026, 2, 28)},
        {utc(2026, 5, 15, 8, 1, 2), 12, utc(2027, 5, 15, 8, 1, 2)},
    };
    for (const auto& c : cases) EXPECT_EQ(cal.addMonths(c.from, c.months), c.expected) << c.from;
    EXPECT_EQ(cal.addDays(utc(2026, 2, 28, 23, 59), 1), utc(2026, 3, 1, 23, 59));
    EXPECT_EQ(cal.addWeeks(utc(2026, 12, 29), 1), utc(2027, 1, 5));
    EXPECT_EQ(cal.addDays(utc(2026, 1, 1) + 0.25, 1), utc(2026, 1, 2) + 0.25);
    EXPECT_EQ(cal.startOfDay(utc(2026, 7, 4, 17, 3)), utc(2026, 7, 4));
}

}  // namespace
