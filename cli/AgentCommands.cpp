// brimstell agent run | status | on | off

#include <cstdio>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/agent/Agent.hpp"
#include "kit/agent/AgentReportText.hpp"
#include "kit/agent/AgentService.hpp"
#include "kit/agent/CronSchedule.hpp"
#include "kit/health/HealthHistory.hpp"
#include "kit/settings/SettingsKeys.hpp"
#include "support/host/Host.hpp"
#include "support/settings/SettingsStore.hpp"

namespace cli {

namespace {

Json reportJson(const brimstell::AgentReport& r) {
    Json j;
    j["due"] = Json::array();
    for (auto job : r.due) j["due"].push_back(std::string(brimstell::jobName(job)));
    j["latchesCleared"] = r.latchesCleared;
    j["alerts"] = Json::array();
    for (const auto& [title, body] : r.alerts) j["alerts"].push_back({{"title", title}, {"body", body}});
    j["writtenPaths"] = r.filesWritten;
    j["notes"] = r.notes;
    return j;
}

// What a person can do about a registration that isn't enabled.
std::string registrationHint(quorv::ServiceStatus status) {
    const bool mac = quorv::host().isMac();
    switch (status) {
        case quorv::ServiceStatus::requiresApproval:
            return mac ? "Allow Brimstell in System Settings → General → Login Items."
                       : "The timer was disabled or masked outside Brimstell: systemctl --user unmask brimstell-agent.timer, "
                         "then brimstell agent on.";
        case quorv::ServiceStatus::notFound:
            return mac ? "The agent is missing from the app bundle; reinstall Brimstell."
                       : "The systemd user manager can't be reached (no user session bus), or brimstell-agent is missing.";
        default:
            return {};
    }
}

void printStatus(bool json) {
    auto& settings = quorv::settings();
    settings.synchronize();
    const double now = quorv::host().now();
    const auto due = brimstell::AgentJobs::due(now, settings, brimstell::HealthHistory::shared().due(now, quorv::host().calendar));
    const auto status = brimstell::AgentService::status();
    std::vector<std::string> latched;
    for (const auto& row : brimstell::Agent::latches) {
        if (settings.boolean(row.key)) latched.emplace_back(row.key);
    }
    const double lastAutoClean = settings.number(brimstell::keys::autoCleanLastRun);
    const auto lastUpdates = settings.date(brimstell::keys::updatesLastCheck);
    const double junkMeasured = settings.number(brimstell::keys::junkMeasured);

    if (json) {
        Json j;
        j["backgroundChecks"] = brimstell::AgentService::isOn();
        j["registration"] = stateWord(brimstell::AgentService::statusText(status));
        j["blockedInSettings"] = brimstell::AgentService::blockedInSettings();
        j["due"] = Json::array();
        for (auto job : due) j["due"].push_back(std::string(brimstell::jobName(job)));
        j["latched"] = latched;
        j["autoCleanLastRunAt"] = dateJson(lastAutoClean);
        j["updatesLastCheckAt"] = lastUpdates ? dateJson(lastUpdates->since1970) : Json(nullptr);
        j["junkMeasuredAt"] = dateJson(junkMeasured);
        printJson(j);
        return;
    }
    std::string dueText;
    for (auto job : due) dueText += (dueText.empty() ? "" : ", ") + std::string(brimstell::jobName(job));
    std::string latchText;
    for (const auto& k : latched) latchText += (latchText.empty() ? "" : ", ") + k;
    fmt::print("Background checks:     {}\n", brimstell::AgentService::isOn() ? "on" : "off");
    fmt::print("Agent registration:    {}\n", brimstell::AgentService::statusText(status));
    if (const auto hint = registrationHint(status); !hint.empty()) fmt::print("                       {}\n", hint);
    fmt::print("Due if it ran now:     {}\n", dueText.empty() ? "nothing" : dueText);
    fmt::print("Alerts latched:        {}\n", latchText.empty() ? "none" : latchText);
    fmt::print("Last Auto Clean:       {}\n", timeText(lastAutoClean));
    fmt::print("Last update check:     {}\n", lastUpdates ? timeText(lastUpdates->since1970) : "never");
    fmt::print("Last junk measurement: {}\n", timeText(junkMeasured));
}

// What works where no service manager can take the agent (no user systemd: a server, a container).
constexpr const char* withoutServiceManager =
    "Without a user systemd, either let systemd keep your user manager running:\n"
    "  loginctl enable-linger \"$USER\"    and then: brimstell agent on\n"
    "or start the agent from cron once an hour:\n"
    "  brimstell agent on --cron\n";

struct Switched {
    bool registered = false;  // on: enabled, awaiting the user's approval, or in the crontab; off: always
    bool cron = false;
    std::optional<std::string> failure;
};

Switched applySwitch(bool on, bool cron) {
    Switched out;
    const auto& h = quorv::host();
    if (cron) {
        out.failure = brimstell::CronSchedule::install(h.executableDir + "/brimstell-agent");
        out.cron = !out.failure;
        out.registered = out.cron;
        return out;
    }
    out.failure = brimstell::AgentService::apply();
    // Off also takes the agent out of the crontab, where on --cron put it.
    if (!on && !h.isMac() && !h.sandbox) (void)brimstell::CronSchedule::remove();
    const auto status = brimstell::AgentService::status();
    out.registered = !on || status == quorv::ServiceStatus::enabled || status == quorv::ServiceStatus::requiresApproval;
    if (!out.registered && !out.failure) out.failure = registrationHint(status);
    return out;
}

void switchTo(bool on, bool cron, bool json, int& exitCode) {
    if (!quorv::settings().set(brimstell::AgentService::key, on)) {
        error("could not write the settings (" + quorv::host().settingsFile() + ")");
        exitCode = 1;
        return;
    }
    const Switched result = applySwitch(on, cron);
    const auto status = brimstell::AgentService::status();
    exitCode = result.registered ? 0 : 1;
    if (json) {
        printJson({{"backgroundChecks", on},
                   {"registration", stateWord(brimstell::AgentService::statusText(status))},
                   {"cron", result.cron},
                   {"error", result.registered || !result.failure ? Json(nullptr) : Json(*result.failure)}});
    } else if (result.cron) {
        fmt::print("Background checks are on. The agent starts from your crontab once an hour.\n");
    } else {
        fmt::print("Background checks are {}. Agent registration: {}.\n", on ? "on" : "off",
                   brimstell::AgentService::statusText(status));
        if (const auto hint = registrationHint(status); on && !hint.empty() && result.registered) fmt::print("{}\n", hint);
    }
    if (result.registered) return;
    error("the agent couldn't be registered: " + result.failure.value_or("no reason was given."));
    if (!quorv::host().isMac()) std::fputs(withoutServiceManager, stderr);
}

}  // namespace

void addAgentCommands(CLI::App& app, int& exitCode) {
    auto* agent = app.add_subcommand("agent", "The background agent that runs once an hour");
    agent->require_subcommand(1);

    auto* run = agent->add_subcommand("run", "Run the agent's hourly run now, here, and say what it did");
    static bool runJson = false;
    run->add_flag("--json", runJson, "Print the account as JSON");
    run->callback([&exitCode] {
        const auto report = brimstell::Agent::run();
        if (runJson) {
            printJson(reportJson(report));
        } else {
            std::fputs(brimstell::reportText(report).c_str(), stdout);
        }
        exitCode = 0;
    });

    static bool statusJson = false;
    jsonCommand(agent, "status", "Show the switch, the registration, what is due and what is latched", statusJson)->callback([] { printStatus(statusJson); });

    static bool onJson = false, onCron = false;
    auto* on = jsonCommand(agent, "on", "Turn the background checks on and register the agent", onJson);
    on->add_flag("--cron", onCron, "Start the agent from your crontab instead (Linux without a user systemd)");
    on->callback([&exitCode] { switchTo(true, onCron, onJson, exitCode); });

    static bool offJson = false;
    jsonCommand(agent, "off", "Turn the background checks off and unregister the agent (and take it out of the crontab)",
                offJson)
        ->callback([&exitCode] { switchTo(false, false, offJson, exitCode); });
}

}  // namespace cli
