#include "kit/agent/RecordedAgentService.hpp"

#include <fmt/format.h>

#include "support/posix/Files.hpp"

namespace brimstell {

using quorv::ServiceStatus;

RecordedAgentService::RecordedAgentService(std::string stateFile, std::string who)
    : stateFile_(std::move(stateFile)), who_(std::move(who)) {}

ServiceStatus RecordedAgentService::status() {
    const auto text = quorv::files::read(stateFile_, 64);
    if (!text) return ServiceStatus::notRegistered;
    // One digit, optionally surrounded by white space.
    const auto first = text->find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return ServiceStatus::notRegistered;
    const auto rest = text->find_first_not_of(" \t\r\n", first + 1);
    const char c = (*text)[first];
    if (rest != std::string::npos || c < '0' || c > '3') return ServiceStatus::notRegistered;
    return static_cast<ServiceStatus>(c - '0');
}

bool RecordedAgentService::registerService(std::string& error) {
    switch (status()) {
        case ServiceStatus::enabled: return true;
        case ServiceStatus::requiresApproval:
            error = who_ + " waits for approval in the login items settings.";
            return false;
        case ServiceStatus::notRegistered:
        case ServiceStatus::notFound: break;
    }
    return record(ServiceStatus::enabled, error);
}

bool RecordedAgentService::unregisterService(std::string& error) {
    return record(ServiceStatus::notRegistered, error);
}

bool RecordedAgentService::record(ServiceStatus status, std::string& error) {
    if (quorv::files::writeAtomically(stateFile_, fmt::format("{}\n", static_cast<int>(status)))) return true;
    error = fmt::format("Could not write {}.", stateFile_);
    return false;
}

}  // namespace brimstell
