#pragma once
// The developer tools of a sandbox Mac: fake "brew", "docker", "xcrun" and "xcode-select" that
// answer as the real ones do and log their arguments to <root>/private/var/log/tools.log.

#include "kit/sandbox/SandboxMac.hpp"

namespace brimstell {

struct SandboxDeveloperTools {
    enum class DockerState { absent, stopped, running };
    bool brew = true;
    DockerState docker = DockerState::running;
    bool xcode = true;
};

void addDeveloperTools(SandboxMac& mac, const SandboxDeveloperTools& tools = {});
// Homebrew alone, at /opt/homebrew: its packages in the Cellar and Caskroom, and a brew that also
// writes the HOMEBREW_ variables and search path it was started with to
// <root>/private/var/log/brew.env.
void addHomebrew(SandboxMac& mac);

}  // namespace brimstell
