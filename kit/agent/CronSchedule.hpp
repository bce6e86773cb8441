#pragma once
// The agent's hourly start from cron, for a Linux machine without a user systemd (a server, a
// container, a session without lingering). One line in the user's crontab, marked as ours, which
// `brimstell agent on --cron` adds and `brimstell agent off` removes; the rest of the crontab is
// left exactly as it was.

#include <optional>
#include <string>

namespace brimstell {

struct CronSchedule {
    // Ends our line, so that it is found again and never taken for one of the user's.
    static constexpr const char* marker = "# brimstell-agent, added by: brimstell agent on --cron";

    // The line that starts agentPath at minute of every hour.
    static std::string line(const std::string& agentPath, int minute);
    // The crontab's text with our line in it, once (replacing an older one of ours).
    static std::string withLine(const std::string& crontab, const std::string& line);
    // The crontab's text without any line of ours.
    static std::string withoutLine(const std::string& crontab);

    // Through the crontab program found on the host's PATH: adds (or takes out) our line. The
    // sentence of what went wrong, or nullopt.
    static std::optional<std::string> install(const std::string& agentPath);
    static std::optional<std::string> remove();
    // Whether the crontab holds our line.
    static bool installed();
};

}  // namespace brimstell
