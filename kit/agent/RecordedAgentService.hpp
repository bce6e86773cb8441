#pragma once
// A registration (the agent's, the root helper's) as a number in a small file: for sandbox Macs and
// tests, where no service manager may be touched. The file holds the status by its number (0 to
// 3); an absent file is "not registered". A test writes 2 or 3 into it to play a pending approval
// or a missing service.

#include <string>

#include "support/host/ServiceRegistrar.hpp"

namespace brimstell {

class RecordedAgentService final : public quorv::ServiceRegistrar {
public:
    // who names the service in the sentence of a refused registration ("The agent", "The helper").
    explicit RecordedAgentService(std::string stateFile, std::string who = "The agent");

    // Absent file = notRegistered; a file that doesn't hold one of the four numbers counts as
    // notRegistered too, so that registering writes a good one.
    quorv::ServiceStatus status() override;
    // From notRegistered or notFound records enabled; enabled stays enabled; a pending approval
    // is refused, as the system refuses it.
    bool registerService(std::string& error) override;
    // Records notRegistered.
    bool unregisterService(std::string& error) override;

    const std::string& stateFile() const { return stateFile_; }

private:
    bool record(quorv::ServiceStatus status, std::string& error);

    std::string stateFile_;
    std::string who_;
};

}  // namespace brimstell
