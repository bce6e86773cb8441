#pragma once
// The agent's jobs and the rules that say which are due.

#include <optional>
#include <set>
#include <string_view>

namespace quorv {
class SettingsStore;
}

namespace brimstell {

enum class AgentJob : int { history, lowDisk, autoClean, updates, batteryWorn, diskHealth, leftovers, loginItems };
using AgentJobSet = std::set<AgentJob>;  // iterates in declaration order

std::string_view jobName(AgentJob job);
std::optional<AgentJob> jobNamed(std::string_view name);

struct AgentJobs {
    // Which jobs are due at now (seconds since 1970), from the settings alone; historyDue says
    // whether the health history still lacks today's reading.
    static AgentJobSet due(double now, quorv::SettingsStore& settings, bool historyDue);

    static constexpr double updateInterval = 604800;  // seven days, in seconds
};

}  // namespace brimstell
