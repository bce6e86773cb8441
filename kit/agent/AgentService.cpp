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

std::optional<std::string> AgentService::apply() {
    // Hold our own reference: the registrar must outlive the calls even if the host is swapped.
    const std::shared_ptr<quorv::ServiceRegistrar> registrar = quorv::host().agentService;
    if (!registrar) return "There is no service manager to register the agent with.";
    const bool on = isOn();
    std::string error;
    bool ok = true;
    try {
        const ServiceStatus current = registrar->status();
        if (on && (current == ServiceStatus::notRegistered || current == ServiceStatus::notFound)) {
            ok = registrar->registerService(error);
        } else if (!on && current == ServiceStatus::enabled) {
            ok = registrar->unregisterService(error);
        }
    } catch (...) {
        // A registrar that throws is treated like one that reports an error: the switch keeps its
        // value and the settings page shows whatever status() reports next.
        ok = false;
    }
    if (ok) return std::nullopt;
    return error.empty() ? std::string("The service manager refused without a reason.") : error;
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
