#pragma once
// The root helper's "svc" on Linux: "enable <unit>" or "disable <unit>" for a service of the
// system's manager, through systemctl with "--now", so that it also starts or stops. Only a
// plain ".service" name is taken (letters, digits and "_.@:-"); "OK" on success, else nothing.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell::HelperLinuxService {

// The systemctl arguments for the request, or nothing when it isn't one this operation takes.
std::optional<std::vector<std::string>> arguments(std::string_view request);
// Runs it with the systemctl under root ("/" on a real system).
std::string reply(const std::string& root, std::string_view request);

}  // namespace brimstell::HelperLinuxService
