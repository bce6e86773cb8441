#pragma once
// The root helper's registration on Linux: two systemd SYSTEM units, a socket unit that listens on
// /run/brimstell/helper.sock and the service it starts (brimstell-helper as root), written to
// /etc/systemd/system and switched on and off through the system manager over D-Bus. Writing them
// needs root. Built only on Linux.

#include <optional>
#include <string>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

class SystemdHelperService final : public quorv::ServiceRegistrar {
public:
    static constexpr const char* socketUnit = "brimstell-helper.socket";
    static constexpr const char* serviceUnit = "brimstell-helper.service";
    static constexpr const char* systemUnitFolder = "/etc/systemd/system";
    static constexpr const char* socketPath = "/run/brimstell/helper.sock";

    // helperPath: the absolute path of the brimstell-helper executable the service runs;
    // unitFolder: where the unit files go (tests point it elsewhere).
    explicit SystemdHelperService(std::string helperPath, std::string unitFolder = systemUnitFolder);

    // notFound when the helper is missing or can't be run by root safely, or the system manager
    // can't be reached; then as every systemd registration (quorv::systemd::registrationState),
    // judged by the socket unit.
    quorv::ServiceStatus status() override;
    // Writes both units, reloads the manager, enables and starts the socket. Refuses a helper that
    // anyone but root could change (root would run it). Takes back what it did on any failure.
    bool registerService(std::string& error) override;
    // Stops the socket and the service, disables the socket, removes both files, reloads.
    bool unregisterService(std::string& error) override;

    struct UnitTexts {
        std::string service;
        std::string socket;
    };
    static UnitTexts unitTexts(const std::string& helperPath);

    // DBUS_SYSTEM_BUS_ADDRESS in the host's environment, else the standard system bus socket.
    static std::string busAddress();

    const std::string& helperPath() const { return helperPath_; }
    const std::string& unitFolder() const { return unitFolder_; }

private:
    // Empty when root may run the helper; else the sentence saying why not.
    std::string helperProblem() const;

    std::string helperPath_;
    std::string unitFolder_;
};

}  // namespace brimstell
