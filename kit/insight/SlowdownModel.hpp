#pragma once
// Why the computer is slow, as the page and the command line show it: the causes of the last
// check and whether one is running or has run. Used from one thread; the reading is taken on the
// background pool and waited for.

#include <optional>
#include <string>
#include <vector>

#include "kit/insight/Slowdown.hpp"

namespace brimstell {

class SlowdownModel {
public:
    std::vector<Slowdown::Cause> causes;
    bool checking = false;
    bool checked = false;
    // The reading the causes came from (shown by `brimstell slow --json`).
    std::optional<Slowdown::Reading> reading;
    std::optional<std::string> message;  // the last quit's outcome

    // Takes a reading off this thread and publishes its causes.
    void check();
    // Carries out a cause's quit fix; false (with message) when nothing could be asked to quit.
    bool quit(const Slowdown::Cause& cause);
    // The cause whose quit fix holds this process id.
    const Slowdown::Cause* causeQuitting(std::uint32_t pid) const;

    // The texts of the page, in the words of the host's platform.
    static std::string checkingText();
    static std::string nothingTitle();
    static std::string nothingDetail();
    static std::string quitText(const std::string& name);
    // How a quit fix quits: as from the Dock on a Mac, SIGTERM on Linux.
    static std::string quitNote();
    static constexpr const char* quitFailedText = "It couldn't be asked to quit";
};

}  // namespace brimstell
