#include <gtest/gtest.h>

#include "kit/agent/Agent.hpp"
#include "support/TestSupport.hpp"
#include "support/settings/SettingsStore.hpp"

namespace {

using brimstell::AgentJob;
using brimstell::AgentRun;

constexpr std::int64_t GB = 1'000'000'000;

using Alerts = std::vector<std::pair<std::string, std::string>>;

// What a latch job leaves: the latch set (never written as false), and at most the one alert.
void expectLatchAndAlert(testing_support::SandboxHost& sandbox, const char* latch, bool latched, const char* title,
                         const char* body) {
    EXPECT_EQ(sandbox.host->settings->object(latch).has_value(), latched) << latch;
    EXPECT_EQ(sandbox.notifier->sent(), (body ? Alerts{{title, body}} : Alerts{}));
}

TEST(AgentLatches, LowDiskHysteresis) {
    const struct {
        const char* name;
        std::optional<quorv::Value> limit;
        bool latchedBefore;
        std::int64_t free;
        bool latchedAfter;
        const char* alertBody;  // nullptr = no alert
    } cases[] = {
        {"well below 10 GB alerts", std::nullopt, false, 4 * GB, true, "Only 4 GB free on Macintosh HD. Open Brimstell to make room."},
        {"one byte below the threshold alerts", std::nullopt, false, 10 * GB - 1, true, "Only 10 GB free on Macintosh HD. Open Brimstell to make room."},
        {"exactly the threshold: no alert", std::nullopt, false, 10 * GB, false, nullptr},
        {"latched and still low: no second alert", std::nullopt, true, 2 * GB, true, nullptr},
        {"latched at the clear level: kept", std::nullopt, true, 11 * GB, true, nullptr},
        {"latched one byte above the clear level: removed", std::nullopt, true, 11 * GB + 1, false, nullptr},
        {"latched inside the band: kept", std::nullopt, true, 10 * GB + 500'000'000, true, nullptr},
        {"no reading (0 free) does nothing", std::nullopt, true, 0, true, nullptr},
        {"limit 20 GB", quorv::Value(20), false, 19'500'000'000, true, "Only 19.5 GB free on Macintosh HD. Open Brimstell to make room."},
        {"limit as a string counts as 10", quorv::Value("20"), false, 15 * GB, false, nullptr},
        {"limit as a double counts as 10", quorv::Value(20.0), false, 15 * GB, false, nullptr},
        {"limit 0 clears above 1 GB", quorv::Value(0), true, GB + 1, false, nullptr},
        {"limit 0 never alerts", quorv::Value(0), false, 1, false, nullptr},
        {"a small figure in the body", std::nullopt, false, 123'456'789, true, "Only 123.5 MB free on Macintosh HD. Open Brimstell to make room."},
    };
    for (const auto& c : cases) {
        testing_support::SandboxHost sandbox;
        quorv::HostScope scope(sandbox.host);
        auto& store = *sandbox.host->settings;
        if (c.limit) store.set("warnLowDiskGB", *c.limit);
        if (c.latchedBefore) store.set("agent.alarm.lowDisk", true);
        AgentRun run(store, sandbox.now);
        run.lowDisk({100 * GB, c.free, c.free});
        SCOPED_TRACE(c.name);
        EXPECT_EQ(store.boolean("agent.alarm.lowDisk"), c.latchedAfter);
        expectLatchAndAlert(sandbox, "agent.alarm.lowDisk", c.latchedAfter, "Your disk is almost full", c.alertBody);
    }
}

TEST(AgentLatches, BatteryWorn) {
    const struct {
        double health;
        bool latchedBefore;
        bool latchedAfter;
        const char* body;
    } cases[] = {
        {0.8, false, false, nullptr},
        {0.7999, false, true, "It holds 79% of what it did new. Apple considers under 80% worn."},
        {0.795, false, true, "It holds 79% of what it did new. Apple considers under 80% worn."},
        {0.5, false, true, "It holds 50% of what it did new. Apple considers under 80% worn."},
        {0.0, false, true, "It holds 0% of what it did new. Apple considers under 80% worn."},
        {0.795, true, true, nullptr},
        {0.819, true, true, nullptr},
        {0.81, false, false, nullptr},
        {0.82, true, false, nullptr},
        {1.0, true, false, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.health);
        testing_support::SandboxHost sandbox;
        quorv::HostScope scope(sandbox.host);
        if (c.latchedBefore) sandbox.host->settings->set("agent.alarm.batteryWorn", true);
        AgentRun run(*sandbox.host->settings, sandbox.now);
        run.report.due = {AgentJob::batteryWorn};
        run.battery = brimstell::BatteryDetails{};
        run.battery->health = c.health;
        run.batteryWorn();
        expectLatchAndAlert(sandbox, "agent.alarm.batteryWorn", c.latchedAfter, "Your battery is worn", c.body);
    }
}

TEST(AgentLatches, DiskHealth) {
    const struct {
        const char* status;
        bool latchedBefore;
        bool latchedAfter;
        const char* body;
    } cases[] = {
        {"Failing", false, true, "Its self-check says Failing. Back up now, and have it checked."},
        {"FAILING", false, true, "Its self-check says FAILING. Back up now, and have it checked."},
        {"About to fail", false, true, "Its self-check says About to fail. Back up now, and have it checked."},
        {"Failing", true, true, nullptr},
        {"Verified", true, false, nullptr},
        {"Unknown", true, false, nullptr},
        {"Verified", false, false, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        testing_support::SandboxHost sandbox;
        quorv::HostScope scope(sandbox.host);
        if (c.latchedBefore) sandbox.host->settings->set("agent.alarm.diskHealth", true);
        AgentRun run(*sandbox.host->settings, sandbox.now);
        run.report.due = {AgentJob::diskHealth};
        run.disk = brimstell::DiskHealth{};
        run.disk->smart = c.status;
        run.diskHealth();
        expectLatchAndAlert(sandbox, "agent.alarm.diskHealth", c.latchedAfter, "Your disk reports a problem", c.body);
    }
}

TEST(AgentLatches, NotDueOrNoReadingLeavesTheLatchAlone) {
    testing_support::SandboxHost sandbox;
    quorv::HostScope scope(sandbox.host);
    auto& store = *sandbox.host->settings;
    store.set("agent.alarm.batteryWorn", true);
    store.set("agent.alarm.diskHealth", true);
    AgentRun run(store, sandbox.now);
    run.report.due = {AgentJob::batteryWorn, AgentJob::diskHealth};
    run.batteryWorn();  // no battery (a desktop Mac)
    run.diskHealth();   // no disk reading
    EXPECT_TRUE(store.boolean("agent.alarm.batteryWorn"));
    EXPECT_TRUE(store.boolean("agent.alarm.diskHealth"));
    EXPECT_TRUE(sandbox.notifier->sent().empty());
}

TEST(AgentLatches, SwitchedOffWarningLosesItsLatch) {
    testing_support::SandboxHost sandbox;
    quorv::HostScope scope(sandbox.host);
    auto& store = *sandbox.host->settings;
    store.set("agent.alarm.lowDisk", true);
    store.set("agent.alarm.batteryWorn", true);
    store.set("warnLowDisk", false);
    store.set("warnBatteryWorn", true);
    AgentRun run(store, sandbox.now);
    run.plan(false);
    EXPECT_FALSE(store.object("agent.alarm.lowDisk").has_value());
    EXPECT_TRUE(store.boolean("agent.alarm.batteryWorn"));
    EXPECT_EQ(run.report.latchesCleared, std::vector<std::string>{"agent.alarm.lowDisk"});
}

}  // namespace
