#include "kit/agent/CronSchedule.hpp"

#include <unistd.h>

#include <algorithm>
#include <functional>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"
#include "support/process/Shell.hpp"

namespace brimstell {

namespace {

std::string quoted(const std::string& s) {
    std::string out = "'";
    for (const char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

bool isOurs(std::string_view line) { return line.find(CronSchedule::marker) != std::string_view::npos; }

// The crontab program: the first executable "crontab" on the host's PATH.
std::optional<std::string> crontabProgram() {
    std::string path = quorv::host().env("PATH").value_or("/usr/bin:/bin");
    for (std::size_t start = 0; start <= path.size();) {
        const auto end = std::min(path.find(':', start), path.size());
        const std::string folder = path.substr(start, end - start);
        if (!folder.empty() && folder[0] == '/' && ::access((folder + "/crontab").c_str(), X_OK) == 0) return folder + "/crontab";
        start = end + 1;
    }
    return std::nullopt;
}

// The user's crontab as text: "" when there is none yet. nullopt with why when it can't be read.
std::optional<std::string> readCrontab(const std::string& program, std::string& why) {
    quorv::ShellOptions options;
    options.captureErrors = true;
    options.timeLimit = 10;
    const auto r = quorv::Shell::run(program, {"-l"}, options);
    if (r.succeeded()) return r.output;
    // "no crontab for <user>": an empty one.
    if (r.started && !r.timedOut && r.errorOutput.find("no crontab") != std::string::npos) return std::string();
    why = r.started ? "crontab -l failed: " + r.errorOutput.substr(0, r.errorOutput.find('\n')) : "crontab can't be run.";
    return std::nullopt;
}

// Hands text to crontab as the user's new crontab, through a private file in the state folder.
std::optional<std::string> writeCrontab(const std::string& program, const std::string& text) {
    const std::string folder = quorv::host().appSupport();
    const std::string file = folder + "/crontab.new";
    if (!quorv::LinkSafe::makeExact(folder, 0700) || !quorv::files::writeAtomically(file, text, 0600)) {
        return "The new crontab can't be written to " + file + ".";
    }
    quorv::ShellOptions options;
    options.captureErrors = true;
    options.timeLimit = 10;
    const auto r = quorv::Shell::run(program, {file}, options);
    ::unlink(file.c_str());
    if (r.succeeded()) return std::nullopt;
    return "crontab refused the new table: " + r.errorOutput.substr(0, r.errorOutput.find('\n'));
}

std::optional<std::string> change(const std::function<std::string(const std::string&)>& edit) {
    const auto program = crontabProgram();
    if (!program) return std::string("There is no crontab program on the PATH (install cron).");
    std::string why;
    const auto current = readCrontab(*program, why);
    if (!current) return why;
    const std::string next = edit(*current);
    if (next == *current) return std::nullopt;
    return writeCrontab(*program, next);
}

}  // namespace

std::string CronSchedule::line(const std::string& agentPath, int minute) {
    return fmt::format("{} * * * * {} {}", minute, quoted(agentPath), marker);
}

std::string CronSchedule::withLine(const std::string& crontab, const std::string& line) {
    std::string out = withoutLine(crontab);
    if (!out.empty() && out.back() != '\n') out += '\n';
    return out + line + "\n";
}

std::string CronSchedule::withoutLine(const std::string& crontab) {
    std::string out;
    std::size_t start = 0;
    while (start < crontab.size()) {
        const auto end = crontab.find('\n', start);
        const std::string_view row(crontab.data() + start, (end == std::string::npos ? crontab.size() : end) - start);
        if (!isOurs(row)) {
            out += row;
            if (end != std::string::npos) out += '\n';
        }
        start = end == std::string::npos ? crontab.size() : end + 1;
    }
    return out;
}

std::optional<std::string> CronSchedule::install(const std::string& agentPath) {
    // Spread over the hour by account, so that the users of one machine don't all start at once.
    const int minute = static_cast<int>(quorv::host().uid % 60);
    return change([&](const std::string& current) { return withLine(current, line(agentPath, minute)); });
}

std::optional<std::string> CronSchedule::remove() {
    return change([](const std::string& current) { return withoutLine(current); });
}

bool CronSchedule::installed() {
    const auto program = crontabProgram();
    std::string why;
    const auto current = program ? readCrontab(*program, why) : std::nullopt;
    return current && withoutLine(*current) != *current;
}

}  // namespace brimstell
