#ifndef __APPLE__

#include "kit/agent/SystemdAgentService.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/systemd/Systemd.hpp"

namespace brimstell {

using quorv::ServiceStatus;

namespace {

namespace systemd = quorv::systemd;
using systemd::Bus;
using systemd::call;
constexpr std::string_view manager = "user manager";

Bus connectUserBus(std::string& error) {
    const auto address = SystemdAgentService::busAddress();
    if (!address) {
        error = "The systemd user manager can't be reached: there is no user bus.";
        return nullptr;
    }
    return systemd::connect(*address, manager, error);
}

bool managerAnswers(sd_bus* bus, std::string& error) { return systemd::managerAnswers(bus, manager, error); }

std::string unitFileState(sd_bus* bus) { return systemd::unitFileState(bus, SystemdAgentService::timerUnit); }

// ---- Files ----

std::string unitPath(const char* unit) { return SystemdAgentService::unitFolder() + "/" + unit; }

bool exists(const std::string& path) { return systemd::unitFilePresent(path); }

bool removeFile(const std::string& path, std::string& error) { return systemd::removeUnitFile(path, error); }

// Best effort: leaves the user manager as if we had never registered.
void takeBack(sd_bus* bus) {
    std::string ignored;
    call(bus, "StopUnit", ignored, nullptr, "ss", SystemdAgentService::timerUnit, "replace");
    call(bus, "DisableUnitFiles", ignored, nullptr, "asb", 1u, SystemdAgentService::timerUnit, 0);
    removeFile(unitPath(SystemdAgentService::timerUnit), ignored);
    removeFile(unitPath(SystemdAgentService::serviceUnit), ignored);
    call(bus, "Reload", ignored, nullptr, "");
}

}  // namespace

SystemdAgentService::SystemdAgentService(std::string agentPath) : agentPath_(std::move(agentPath)) {}

SystemdAgentService::UnitTexts SystemdAgentService::unitTexts(const std::string& agentPath) {
    UnitTexts texts;
    texts.service = fmt::format(
        "# Written by Brimstell; removed when background checks are switched off.\n"
        "[Unit]\n"
        "Description=Brimstell background checks\n"
        "\n"
        "[Service]\n"
        "Type=oneshot\n"
        "Environment=XPC_SERVICE_NAME=com.quorv.brimstell.agent\n"
        "ExecStart={}\n"
        "Nice=10\n"
        "IOSchedulingClass=idle\n",
        systemd::execWord(agentPath));
    texts.timer =
        "# Written by Brimstell; removed when background checks are switched off.\n"
        "[Unit]\n"
        "Description=Run Brimstell background checks every hour\n"
        "\n"
        "[Timer]\n"
        "OnCalendar=hourly\n"
        "Persistent=true\n"
        "RandomizedDelaySec=5min\n"
        "\n"
        "[Install]\n"
        "WantedBy=timers.target\n";
    return texts;
}

// The user manager's view, mapped as every systemd registration maps it (registrationState).
ServiceStatus SystemdAgentService::mapState(bool managerReachable, bool unitFilesPresent,
                                            const std::string& unitFileState) {
    return systemd::registrationState(managerReachable, unitFilesPresent, unitFileState);
}

std::string SystemdAgentService::unitFolder() {
    const auto& h = quorv::host();
    std::string config;
    if (auto v = h.env("XDG_CONFIG_HOME"); v && !v->empty() && (*v)[0] == '/') {
        config = *v;
        while (config.size() > 1 && config.back() == '/') config.pop_back();
        if (config == "/") config.clear();
    } else {
        config = h.inHome(".config");
    }
    return config + "/systemd/user";
}

std::optional<std::string> SystemdAgentService::busAddress() { return systemd::sessionBusAddress(); }

bool SystemdAgentService::agentPresent() const {
    if (agentPath_.empty() || agentPath_[0] != '/' || !systemd::runnableBySystemd(agentPath_)) return false;
    struct stat st{};
    return ::stat(agentPath_.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(agentPath_.c_str(), X_OK) == 0;
}

ServiceStatus SystemdAgentService::status() {
    if (!agentPresent()) return ServiceStatus::notFound;
    std::string ignored;
    Bus bus = connectUserBus(ignored);
    const bool reachable = bus && managerAnswers(bus.get(), ignored);
    const bool present = exists(unitPath(timerUnit)) && exists(unitPath(serviceUnit));
    const std::string state = reachable && present ? unitFileState(bus.get()) : std::string();
    return mapState(reachable, present, state);
}

bool SystemdAgentService::registerService(std::string& error) {
    if (!agentPresent()) {
        error = systemd::runnableBySystemd(agentPath_)
                    ? fmt::format("The agent executable is missing: {}.", agentPath_)
                    : "systemd can't run the agent from a path with quotes, backslashes or control characters.";
        return false;
    }
    // Reach the manager before writing anything, so a failure leaves no files behind.
    Bus bus = connectUserBus(error);
    if (!bus || !managerAnswers(bus.get(), error)) return false;

    const UnitTexts texts = unitTexts(agentPath_);
    const std::string servicePath = unitPath(serviceUnit);
    const std::string timerPath = unitPath(timerUnit);
    // The timer last: its file is what marks the agent as registered.
    if (!quorv::files::writeAtomically(servicePath, texts.service) ||
        !quorv::files::writeAtomically(timerPath, texts.timer)) {
        const int cause = errno;
        error = fmt::format("Could not write the unit files in {}: {}.", unitFolder(), std::strerror(cause));
        std::string ignored;
        removeFile(timerPath, ignored);
        removeFile(servicePath, ignored);
        return false;
    }
    std::string failure;
    const bool ok = call(bus.get(), "Reload", failure, nullptr, "") &&
                    call(bus.get(), "EnableUnitFiles", failure, nullptr, "asbb", 1u, timerUnit, 0, 1) &&
                    call(bus.get(), "StartUnit", failure, nullptr, "ss", timerUnit, "replace");
    if (!ok) {
        takeBack(bus.get());
        error = failure;
    }
    return ok;
}

bool SystemdAgentService::unregisterService(std::string& error) {
    Bus bus = connectUserBus(error);
    if (!bus || !managerAnswers(bus.get(), error)) return false;
    std::string failure;
    // Stopping a timer that isn't running is not a failure worth reporting.
    std::string ignored;
    call(bus.get(), "StopUnit", ignored, nullptr, "ss", timerUnit, "replace");
    bool ok = call(bus.get(), "DisableUnitFiles", failure, nullptr, "asb", 1u, timerUnit, 0);
    // The files go even when disabling failed: without them the timer can't run again.
    ok = removeFile(unitPath(timerUnit), failure) && ok;
    ok = removeFile(unitPath(serviceUnit), failure) && ok;
    ok = call(bus.get(), "Reload", failure, nullptr, "") && ok;
    if (!ok) error = failure;
    return ok;
}

}  // namespace brimstell

#endif  // __APPLE__
