#include "kit/agent/AgentReportText.hpp"

#include <fmt/format.h>

namespace brimstell {

std::string reportText(const AgentReport& report) {
    std::string out;
    std::string jobs;
    for (auto job : report.due) {
        if (!jobs.empty()) jobs += ", ";
        jobs += jobName(job);
    }
    out += "Jobs due: " + (jobs.empty() ? std::string("none") : jobs) + "\n";
    for (const auto& key : report.latchesCleared) out += "Cleared " + key + "\n";
    for (const auto& note : report.notes) out += note + "\n";
    if (report.alerts.empty()) {
        out += "Alerts sent: none\n";
    } else {
        out += fmt::format("Alerts sent: {}\n", report.alerts.size());
        for (const auto& [title, body] : report.alerts) out += "  " + title + " — " + body + "\n";
    }
    for (const auto& file : report.filesWritten) out += "Wrote " + file + "\n";
    return out;
}

}  // namespace brimstell
