#pragma once
// Registration of a background job (the agent, the root helper) with the system's service manager.

#include <string>

namespace quorv {

// The four states, by the numbers the platform's service status uses.
enum class ServiceStatus : int { notRegistered = 0, enabled = 1, requiresApproval = 2, notFound = 3 };

class ServiceRegistrar {
public:
    virtual ~ServiceRegistrar() = default;
    virtual ServiceStatus status() = 0;
    // False with a short reason in error when the service manager refused.
    virtual bool registerService(std::string& error) = 0;
    virtual bool unregisterService(std::string& error) = 0;
};

}  // namespace quorv
