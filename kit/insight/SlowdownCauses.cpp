// The rules that turn a reading into causes, applied in this order: heat, memory, busy programs,
// drawing, what holds the memory, the disk, the system's background work, backup, Low Power Mode
// and uptime. On Linux a text that names the Mac says what it means there.

#include <algorithm>
#include <cmath>
#include <set>

#include "kit/insight/Slowdown.hpp"
#include "kit/insight/SlowdownRules.hpp"
#include "support/host/Host.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

using Cause = Slowdown::Cause;
using Severity = Slowdown::Severity;

namespace {

std::string said(const char* mac, const char* linux) { return quorv::host().isMac() ? mac : linux; }

std::string wholePercent(double cpu) { return std::to_string(static_cast<long long>(std::floor(cpu))); }

void addHot(const Slowdown::Reading& r, std::vector<Cause>& out) {
    const bool hot = r.thermal == Slowdown::Thermal::serious || r.thermal == Slowdown::Thermal::critical;
    if (!hot && slowdownRules::cpuOf(r.procs, {"kernel_task"}) < 150) return;
    out.push_back({said("Your Mac is hot and has slowed itself down", "Your computer is hot and has slowed itself down"),
                   said("macOS slows the processor to cool it down. Quitting heavy apps, keeping the vents clear and "
                        "keeping it off soft surfaces helps.",
                        "The system slows the processor to cool it down. Quitting heavy apps, keeping the vents clear "
                        "and keeping it off soft surfaces helps."),
                   "thermometer.high", Severity::high, std::monostate{}});
}

bool addMemory(const Slowdown::Reading& r, std::vector<Cause>& out) {
    const auto& m = r.memory;
    const bool short_ = m.pressure != Slowdown::MemoryPressure::normal || (m.total > 0 && m.swap > m.total / 4);
    if (!short_) return false;
    std::string detail = m.swap > 0
        ? said("macOS is using ", "The system is using ") + quorv::formatSize(m.swap) +
              " of disk as extra memory, which is much slower than real memory. Quitting apps you aren't using frees it."
        : std::string("Apps are using nearly all of it. Quitting apps you aren't using frees it.");
    out.push_back({said("Your Mac is short of memory", "Your computer is short of memory"), std::move(detail), "memorychip",
                   Severity::high, std::monostate{}});
    return true;
}

void addBusy(const Slowdown::Reading& r, const std::vector<Slowdown::Load>& loads, std::vector<Cause>& out) {
    for (const auto& load : loads) {
        if (load.cpu < 60 || slowdownRules::systemOwn(load, r.me) || slowdownRules::excludedFromBusy(load.name)) continue;
        const Severity severity = load.cpu >= 150 ? Severity::high : Severity::medium;
        const std::string title = load.name + " is keeping the processor busy";
        if (load.uids == std::set<std::uint32_t>{r.me}) {
            out.push_back({title,
                           "It's using " + wholePercent(load.cpu) +
                               "% of a processor core. Quit it if you're not using it; if it keeps happening, an update may fix it.",
                           "cpu", severity, Slowdown::Quit{load.name, load.bundle, load.pids}});
        } else if (load.uids.count(0)) {
            out.push_back({title,
                           "It runs in the background for every account, using " + wholePercent(load.cpu) +
                               "% of a processor core. If you don't need it, turn it off in Startup.",
                           "cpu", severity, Slowdown::OpenTool{Slowdown::Tool::startup}});
        }
    }
}

void addDrawing(const Slowdown::Reading& r, std::vector<Cause>& out) {
    if (slowdownRules::cpuOf(r.procs, slowdownRules::drawingNames()) < 60) return;
    out.push_back({"Your screen is busy drawing",
                   said("Many open windows, several displays or a lot of animation keep macOS busy drawing them. Closing "
                        "windows you don't need helps.",
                        "Many open windows, several displays or a lot of animation keep the system busy drawing them. "
                        "Closing windows you don't need helps."),
                   "macwindow.on.rectangle", Severity::medium, std::monostate{}});
}

}  // namespace

std::vector<Cause> Slowdown::causes(const Reading& r) {
    std::vector<Cause> out;
    const auto loads = group(r.procs, r.me);
    addHot(r, out);
    const bool shortOfMemory = addMemory(r, out);
    addBusy(r, loads, out);
    addDrawing(r, out);
    if (shortOfMemory) slowdownRules::addMemoryHolders(r, loads, out);
    slowdownRules::addDisk(r, out);
    slowdownRules::addWork(r, out);
    slowdownRules::addBackup(r, out);
    slowdownRules::addLowPower(r, out);
    slowdownRules::addUptime(r, out);
    return out;
}

}  // namespace brimstell
