#pragma once
// The user's crontab as start-up items: each command line of it runs by itself, "@reboot" ones
// when the computer starts, the others on their schedule.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/insight/BackgroundItem.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

struct Crontab {
    struct Line {
        int number = 0;        // 1-based, in the crontab's text
        std::string schedule;  // "@reboot", "*/5 * * * *"
        std::string command;
        std::string text;      // the line as written, trimmed
        bool atStart() const { return schedule == "@reboot"; }
    };

    // The command lines of a crontab: comments, blank lines and variable settings ("MAILTO=x",
    // "PATH = /bin") are left out, and so is a line too short to hold a schedule and a command.
    static std::vector<Line> parse(std::string_view text);
    // The crontab from `crontab -l`'s answer: empty for "no crontab for USER", nothing when the
    // tool failed otherwise (or didn't run).
    static std::optional<std::string> listed(const quorv::ShellResult& answer);
    // The user's crontab lines as items of the user's scope. Every line shows, not only
    // "@reboot" ones: a line that runs every few minutes starts a program by itself as surely.
    static std::vector<BackgroundItem> items();
    // The item of one line (label "crontab:N", the line as its listed name).
    static BackgroundItem item(const Line& line);
};

}  // namespace brimstell
