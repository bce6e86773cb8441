#pragma once
// The agent's hourly run: work out what is due, do it one job after the other, alert, refresh the
// widget, and leave everything worth remembering in the settings.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/agent/AgentJob.hpp"
#include "kit/cleaning/LeftoverGroup.hpp"
#include "kit/files/VolumeStats.hpp"
#include "kit/health/HealthTypes.hpp"

namespace quorv {
class SettingsStore;
}

namespace brimstell {

// What one run did, for the account printed on a terminal.
struct AgentReport {
    AgentJobSet due;
    std::vector<std::string> latchesCleared;
    std::vector<std::pair<std::string, std::string>> alerts;  // title, body
    std::vector<std::string> filesWritten;
    std::vector<std::string> notes;  // one line per step that found something worth saying
};

struct LatchRow {
    AgentJob job;
    const char* key;
};

// One run's state and its steps, in the order they run.
class AgentRun {
public:
    AgentRun(quorv::SettingsStore& settings, double now);

    // Due jobs and latches of jobs that are not due.
    void plan(bool historyDue);
    // The run's one battery reading, taken when the history or the worn-battery job needs it.
    void readBattery();
    // The history job: the battery reading kept as today's point.
    void keepHistory();
    // The low-disk job over the start-up volume's free bytes.
    void lowDisk(const VolumeStats& volume);
    // The worn-battery job over the run's battery reading.
    void batteryWorn();
    // The run's one disk reading, taken when the failing-disk job is due.
    void readDisk();
    // The failing-disk job over the run's disk reading.
    void diskHealth();
    // The leftovers job: the installed apps remembered, and leftovers looked for when one has gone.
    void leftovers();
    // The login-items job.
    void loginItems();
    // The Auto Clean job: one run, and its alert when it freed something.
    void autoClean();
    // The weekly update check, and its alert when it found updates.
    void updates();
    // The junk figure for the widget, measured at most once in six hours.
    void measureJunk();
    // Widget snapshot and the final flush of the settings.
    void finish();

    bool isDue(AgentJob job) const { return report.due.count(job) != 0; }

    quorv::SettingsStore& settings;
    double now;
    std::optional<BatteryDetails> battery;
    std::optional<DiskHealth> disk;
    std::optional<std::int64_t> junk;
    AgentReport report;
    bool settingsChanged = false;

private:
    void alert(const std::string& title, const std::string& body);
    bool latched(const char* key);
    void latch(const char* key);
    void unlatch(const char* key);
};

struct Agent {
    static constexpr const char* label = "com.quorv.brimstell.agent";
    // The junk scan is throttled to once in this many seconds, though the agent runs hourly.
    static constexpr double junkMeasureInterval = 21'600;
    static const std::array<LatchRow, 3> latches;

    // The latch keys of the rows whose job is not due, in table order.
    static std::vector<std::string> latchesToClear(const AgentJobSet& due);

    // Leftovers of more than this many bytes in all are worth an alert.
    static constexpr std::int64_t leftoversAlertBytes = 5'000'000;
    // The alert (title, body) for the leftovers found, or none when they are too small to mention.
    static std::optional<std::pair<std::string, std::string>> leftoversAlert(const std::vector<LeftoverGroup>& groups);
    // "1 app update available", "3 app updates available", with where to see them; none for 0.
    static std::optional<std::pair<std::string, std::string>> updatesAlert(std::size_t found);

    // One whole run. Never throws; a reading that can't be taken makes its job do nothing.
    static AgentReport run();

    // Whether a process started with this XPC_SERVICE_NAME (nullopt = unset) should run.
    static bool shouldRun(const std::optional<std::string>& serviceName);
};

}  // namespace brimstell
