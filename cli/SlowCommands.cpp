// brimstell slow [--json] · brimstell slow quit PID [--yes] [--json]

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "cli/Spinner.hpp"
#include "kit/insight/SlowdownModel.hpp"

namespace cli {

namespace {

using brimstell::Slowdown;
using brimstell::SlowdownModel;

void check(SlowdownModel& model) {
    Spinner spinner(SlowdownModel::checkingText());
    model.check();
}

Json fixJson(const Slowdown::Fix& fix) {
    if (const auto* q = std::get_if<Slowdown::Quit>(&fix))
        return {{"kind", "quit"}, {"name", q->name}, {"bundleId", q->bundle ? Json(*q->bundle) : Json(nullptr)},
                {"pids", q->pids}, {"note", SlowdownModel::quitNote()}};
    if (const auto* t = std::get_if<Slowdown::OpenTool>(&fix)) {
        Json j{{"kind", "tool"}, {"tool", Slowdown::toolName(t->tool)}};
        if (t->tool == Slowdown::Tool::freeUpSpace) j["label"] = Slowdown::freeUpSpaceButton;
        return j;
    }
    if (const auto* s = std::get_if<Slowdown::Settings>(&fix))
        return {{"kind", "settings"}, {"address", s->address}, {"label", Slowdown::openSettingsButton}};
    return nullptr;
}

Json readingJson(const Slowdown::Reading& r) {
    const auto& m = r.memory;
    return {{"memory", {{"usedBytes", m.used}, {"totalBytes", m.total}, {"compressedBytes", m.compressed},
                        {"swapBytes", m.swap}, {"pressure", Slowdown::pressureName(m.pressure)}}},
            {"thermal", Slowdown::thermalName(r.thermal)},
            {"disk", {{"freeBytes", r.free}, {"totalBytes", r.total}}},
            {"backupRunning", r.backupRunning},
            {"lowPower", r.lowPower},
            {"uptimeSeconds", r.uptime},
            {"processCount", r.procs.size()}};
}

// What to do about a cause, as a line under it; empty when there is nothing to do.
std::string fixLine(const Slowdown::Fix& fix) {
    if (const auto* q = std::get_if<Slowdown::Quit>(&fix))
        return q->pids.empty() ? std::string() : fmt::format("→ brimstell slow quit {}   ({})", q->pids.front(), SlowdownModel::quitNote());
    if (const auto* t = std::get_if<Slowdown::OpenTool>(&fix))
        return t->tool == Slowdown::Tool::startup ? "→ brimstell startup"
                                                   : fmt::format("→ {} brimstell junk", Slowdown::freeUpSpaceButton);
    if (const auto* s = std::get_if<Slowdown::Settings>(&fix))
        return fmt::format("→ {} {}", Slowdown::openSettingsButton, s->address);
    return {};
}

void runCheck(bool json) {
    SlowdownModel model;
    check(model);
    if (json) {
        Json causes = Json::array();
        for (const auto& c : model.causes)
            causes.push_back({{"title", c.title}, {"detail", c.detail}, {"icon", c.icon},
                              {"severity", Slowdown::severityName(c.severity)}, {"fix", fixJson(c.fix)}});
        return printJson({{"causes", std::move(causes)}, {"reading", readingJson(*model.reading)}});
    }
    if (model.causes.empty()) return fmt::print("{}\n{}\n", SlowdownModel::nothingTitle(), SlowdownModel::nothingDetail());
    bool first = true;
    for (const auto& c : model.causes) {
        fmt::print("{}{}  ({})\n  {}\n", first ? "" : "\n", c.title, Slowdown::severityName(c.severity), c.detail);
        if (const auto line = fixLine(c.fix); !line.empty()) fmt::print("  {}\n", line);
        first = false;
    }
}

void runQuit(std::uint32_t pid, bool yes, bool json, int& exitCode) {
    SlowdownModel model;
    check(model);
    const auto* cause = model.causeQuitting(pid);
    if (!cause) {
        error(fmt::format("nothing found slowing the computer down asks to quit process {}", pid));
        exitCode = 1;
        return;
    }
    const auto& q = std::get<Slowdown::Quit>(cause->fix);
    if (!json) fmt::print("{}\n", SlowdownModel::quitNote());
    if (!goAhead("Quit " + q.name + "?", yes, "quitting " + q.name, "Nothing quit.", exitCode)) return;
    const bool ok = model.quit(*cause);
    const std::string text = model.message.value_or("");
    if (json) printJson(ok ? Json{{"done", true}, {"message", text}} : Json{{"done", false}, {"error", text}});
    else if (ok) fmt::print("{}\n", text);
    else error(text);
    if (!ok) exitCode = 1;
}

}  // namespace

void addSlowCommands(CLI::App& app, int& exitCode) {
    static bool json = false;
    auto* slow = jsonCommand(&app, "slow", "Why the computer is slow: what is holding it back, and what to do", json);
    slow->callback([slow] {
        if (slow->get_subcommands().empty()) runCheck(json);
    });
    static std::uint32_t pid = 0;
    static bool quitJson = false, yes = false;
    auto* quit = jsonCommand(slow, "quit", "Ask a program the check found busy or holding memory to quit", quitJson);
    quit->add_option("PID", pid, "A process id the check lists")->required();
    quit->add_flag("--yes", yes, "Don't ask before quitting");
    quit->callback([&exitCode] { runQuit(pid, yes, quitJson, exitCode); });
}

}  // namespace cli
