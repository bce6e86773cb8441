#include "kit/agent/AgentService.hpp"

#include <memory>
#include <string>

#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace brimstell {

using quorv::ServiceStatus;

bool AgentService::isOn() { return quorv::settings().unlessFalse(key); }

bool AgentService::blockedInSettings() { return status() == ServiceStatus::requiresApproval; }

ServiceStatus AgentService::status() {
    const std::shared_ptr<quorv::ServiceRegistrar> registrar = quorv::host().agentService;
    if (!registrar) return ServiceStatus::notFound;
    try {
        return registrar->status();
    } catch (...) {
        return ServiceStatus::notFound;
    }
}

void AgentService::apply() {
    // Hold our own reference: the registrar must outlive the calls even if the host is swapped.
    const std::shared_ptr<quorv::ServiceRegistrar> registrar = quorv::host().agentService;
    if (!registrar) return;
    const bool on = isOn();
    try {
        const ServiceStatus current = registrar->status();
        std::string error;
        if (on) {
            if (current == ServiceStatus::notRegistered || current == ServiceStatus::notFound) {
                registrar->registerService(error);
            }
        } else if (current == ServiceStatus::enabled) {
            registrar->unregisterService(error);
        }
    } catch (...) {
        // A registrar that throws is treated like one that reports an error: the switch keeps its
        // value and the settings page shows whatever status() reports next.
    }
}

const char* AgentService::statusText(ServiceStatus status) {
    switch (status) {
        case ServiceStatus::notRegistered: return "not registered";
        case ServiceStatus::enabled: return "enabled";
        case ServiceStatus::requiresApproval: return "requires approval";
        case ServiceStatus::notFound: return "not found";
    }
    return "unknown";
}

}  // namespace brimstell
