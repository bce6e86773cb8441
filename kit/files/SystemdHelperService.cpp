#ifndef __APPLE__

#include "kit/files/SystemdHelperService.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/RootControlled.hpp"
#include "support/systemd/Systemd.hpp"

namespace brimstell {

using quorv::ServiceStatus;
namespace systemd = quorv::systemd;

namespace {

constexpr std::string_view manager = "system manager";
constexpr const char* needsRoot = "Installing the helper needs root: sudo brimstell helper install";

bool exists(const std::string& path) { return systemd::unitFilePresent(path); }

bool removeFile(const std::string& path, std::string& error) {
    return systemd::removeUnitFile(path, error, "Removing the helper needs root: sudo brimstell helper uninstall");
}

}  // namespace

SystemdHelperService::SystemdHelperService(std::string helperPath, std::string unitFolder)
    : helperPath_(std::move(helperPath)), unitFolder_(std::move(unitFolder)) {}

SystemdHelperService::UnitTexts SystemdHelperService::unitTexts(const std::string& helperPath) {
    UnitTexts texts;
    texts.service = fmt::format(
        "# Written by Brimstell; removed by `brimstell helper uninstall`.\n"
        "[Unit]\n"
        "Description=Brimstell root helper\n"
        "Requires=brimstell-helper.socket\n"
        "After=brimstell-helper.socket\n"
        "\n"
        "[Service]\n"
        "Type=simple\n"
        "ExecStart={}\n"
        "UMask=0077\n",
        systemd::execWord(helperPath));
    texts.socket = fmt::format(
        "# Written by Brimstell; removed by `brimstell helper uninstall`.\n"
        "# Anyone may connect: the helper itself checks every caller.\n"
        "[Unit]\n"
        "Description=Brimstell root helper socket\n"
        "\n"
        "[Socket]\n"
        "ListenStream={}\n"
        "SocketMode=0666\n"
        "DirectoryMode=0755\n"
        "\n"
        "[Install]\n"
        "WantedBy=sockets.target\n",
        socketPath);
    return texts;
}

std::string SystemdHelperService::busAddress() {
    if (auto v = quorv::host().env("DBUS_SYSTEM_BUS_ADDRESS"); v && !v->empty()) return *v;
    return "unix:path=/run/dbus/system_bus_socket";
}

std::string SystemdHelperService::helperProblem() const {
    if (helperPath_.empty() || helperPath_[0] != '/' || !exists(helperPath_)) {
        return fmt::format("The helper executable is missing: {}.", helperPath_);
    }
    if (!systemd::runnableBySystemd(helperPath_)) {
        return "systemd can't run the helper from a path with quotes, backslashes or control characters.";
    }
    // Root will run this file: nobody else may be able to change it, nor the folders it lies in.
    const auto st = quorv::rootControlled(helperPath_);
    if (!st || !S_ISREG(st->st_mode) || (st->st_mode & S_IXUSR) == 0) {
        return fmt::format("The helper must be an executable that only root can change, in folders only root can "
                           "change: {}.",
                           helperPath_);
    }
    return {};
}

ServiceStatus SystemdHelperService::status() {
    if (!helperProblem().empty()) return ServiceStatus::notFound;
    std::string ignored;
    systemd::Bus bus = systemd::connect(busAddress(), manager, ignored);
    const bool reachable = bus && systemd::managerAnswers(bus.get(), manager, ignored);
    const bool present = exists(unitFolder_ + "/" + socketUnit) && exists(unitFolder_ + "/" + serviceUnit);
    const std::string state = reachable && present ? systemd::unitFileState(bus.get(), socketUnit) : std::string();
    return systemd::registrationState(reachable, present, state);
}

bool SystemdHelperService::registerService(std::string& error) {
    if (auto problem = helperProblem(); !problem.empty()) {
        error = problem;
        return false;
    }
    if (::access(unitFolder_.c_str(), W_OK) != 0) {
        error = errno == ENOENT ? fmt::format("The unit folder is missing: {}.", unitFolder_) : needsRoot;
        return false;
    }
    systemd::Bus bus = systemd::connect(busAddress(), manager, error);
    if (!bus || !systemd::managerAnswers(bus.get(), manager, error)) return false;

    const UnitTexts texts = unitTexts(helperPath_);
    const std::string servicePath = unitFolder_ + "/" + serviceUnit;
    const std::string socketFile = unitFolder_ + "/" + socketUnit;
    // The socket last: its file is what marks the helper as registered.
    if (!quorv::files::writeAtomically(servicePath, texts.service) ||
        !quorv::files::writeAtomically(socketFile, texts.socket)) {
        const int cause = errno;
        error = cause == EACCES || cause == EPERM
                    ? std::string(needsRoot)
                    : fmt::format("Could not write the unit files in {}: {}.", unitFolder_, std::strerror(cause));
        std::string ignored;
        removeFile(socketFile, ignored);
        removeFile(servicePath, ignored);
        return false;
    }
    std::string failure;
    const bool ok = systemd::call(bus.get(), "Reload", failure, nullptr, "") &&
                    systemd::call(bus.get(), "EnableUnitFiles", failure, nullptr, "asbb", 1u, socketUnit, 0, 1) &&
                    systemd::call(bus.get(), "StartUnit", failure, nullptr, "ss", socketUnit, "replace");
    if (!ok) {
        std::string ignored;
        systemd::call(bus.get(), "StopUnit", ignored, nullptr, "ss", socketUnit, "replace");
        systemd::call(bus.get(), "DisableUnitFiles", ignored, nullptr, "asb", 1u, socketUnit, 0);
        removeFile(socketFile, ignored);
        removeFile(servicePath, ignored);
        systemd::call(bus.get(), "Reload", ignored, nullptr, "");
        error = failure;
    }
    return ok;
}

bool SystemdHelperService::unregisterService(std::string& error) {
    if (::access(unitFolder_.c_str(), W_OK) != 0 && errno != ENOENT) {
        error = "Removing the helper needs root: sudo brimstell helper uninstall";
        return false;
    }
    systemd::Bus bus = systemd::connect(busAddress(), manager, error);
    if (!bus || !systemd::managerAnswers(bus.get(), manager, error)) return false;
    std::string failure;
    // Stopping units that aren't running is not worth reporting.
    std::string ignored;
    systemd::call(bus.get(), "StopUnit", ignored, nullptr, "ss", socketUnit, "replace");
    systemd::call(bus.get(), "StopUnit", ignored, nullptr, "ss", serviceUnit, "replace");
    bool ok = systemd::call(bus.get(), "DisableUnitFiles", failure, nullptr, "asb", 1u, socketUnit, 0);
    // The files go even when disabling failed: without them the helper can't start again.
    ok = removeFile(unitFolder_ + "/" + socketUnit, failure) && ok;
    ok = removeFile(unitFolder_ + "/" + serviceUnit, failure) && ok;
    ok = systemd::call(bus.get(), "Reload", failure, nullptr, "") && ok;
    if (!ok) error = failure;
    return ok;
}

}  // namespace brimstell

#endif  // __APPLE__
