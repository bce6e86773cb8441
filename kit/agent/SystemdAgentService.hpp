#pragma once
// The agent's registration on Linux: a systemd user service that runs the agent once, started by
// an hourly timer, both as unit files in the user's own unit folder and switched on and off
// through the user manager over D-Bus. Built only on Linux.

#include <optional>
#include <string>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

class SystemdAgentService final : public quorv::ServiceRegistrar {
public:
    static constexpr const char* serviceUnit = "brimstell-agent.service";
    static constexpr const char* timerUnit = "brimstell-agent.timer";

    // agentPath: the absolute path of the brimstell-agent executable the service runs.
    explicit SystemdAgentService(std::string agentPath);

    quorv::ServiceStatus status() override;
    // Writes both unit files, reloads the manager, enables and starts the timer. On any failure
    // it takes back what it did, so that it leaves either a working registration or none.
    bool registerService(std::string& error) override;
    // Stops and disables the timer, removes both unit files and reloads the manager.
    bool unregisterService(std::string& error) override;

    struct UnitTexts {
        std::string service;
        std::string timer;
    };
    // The two unit files' contents for an agent at agentPath.
    static UnitTexts unitTexts(const std::string& agentPath);

    // How the user manager's view maps onto the four registration states (see the .cpp).
    static quorv::ServiceStatus mapState(bool managerReachable, bool unitFilesPresent,
                                         const std::string& unitFileState);

    // <config>/systemd/user, config being XDG_CONFIG_HOME when absolute, else ~/.config (host's).
    static std::string unitFolder();
    // The user bus: DBUS_SESSION_BUS_ADDRESS, else the "bus" socket in XDG_RUNTIME_DIR (host's
    // environment); nullopt when neither is set.
    static std::optional<std::string> busAddress();

    const std::string& agentPath() const { return agentPath_; }

private:
    // The agent exists, is executable and lies at a path systemd will run.
    bool agentPresent() const;

    std::string agentPath_;
};

}  // namespace brimstell
