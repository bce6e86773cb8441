// brimstell helper status | install | uninstall

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "cli/Output.hpp"
#include "kit/agent/AgentService.hpp"
#include "kit/files/Admin.hpp"
#include "shared/helper/HelperInfo.hpp"
#include "support/host/Host.hpp"
#include "support/host/ServiceRegistrar.hpp"

namespace cli {

namespace {

quorv::ServiceStatus helperStatus() {
    const auto registrar = quorv::host().helperService;
    if (!registrar) return quorv::ServiceStatus::notFound;
    try {
        return registrar->status();
    } catch (...) {
        return quorv::ServiceStatus::notFound;
    }
}

// What a person can do about a registration that isn't enabled.
std::string hint(quorv::ServiceStatus status) {
    const bool mac = quorv::host().isMac();
    switch (status) {
        case quorv::ServiceStatus::notRegistered:
            return mac ? "Brimstell registers it the first time it needs it." : "Install it with: sudo brimstell helper install";
        case quorv::ServiceStatus::requiresApproval:
            return mac ? "Allow Brimstell in System Settings → General → Login Items."
                       : "brimstell-helper.socket was disabled or masked outside Brimstell: sudo systemctl unmask "
                         "brimstell-helper.socket, then sudo brimstell helper install.";
        case quorv::ServiceStatus::notFound:
            return mac ? "The helper is missing from the app bundle; reinstall Brimstell."
                       : "The systemd system manager can't be reached, or brimstell-helper is missing or can be changed "
                         "by someone other than root.";
        default:
            return {};
    }
}

// A sandbox without a helper socket runs the helper's work in this process, with the user's own
// rights: there is no helper to answer, and saying "yes" would be untrue.
bool helperInProcess() {
    const auto& h = quorv::host();
    const auto socket = h.env("BRIMSTELL_HELPER_SOCKET");
    return h.sandbox && !(socket && !socket->empty() && (*socket)[0] == '/');
}

void printStatus(bool json) {
    const auto status = helperStatus();
    const bool inProcess = helperInProcess();
    // One plain ask, no registration and no retry: is anybody answering?
    const auto version = inProcess ? std::nullopt
                                   : brimstell::Admin::callHelper("version", "", {}, brimstell::Admin::timing().handshake);
    const std::string expected(brimstell::HelperInfo::version);
    if (json) {
        printJson({{"registration", stateWord(brimstell::AgentService::statusText(status))},
                   {"inProcess", inProcess},
                   {"answers", version.has_value()},
                   {"version", version ? Json(*version) : Json(nullptr)},
                   {"expectedVersion", expected}});
        return;
    }
    fmt::print("Helper registration: {}\n", brimstell::AgentService::statusText(status));
    if (const auto h = hint(status); !h.empty() && !inProcess) fmt::print("                     {}\n", h);
    if (inProcess) {
        fmt::print("Helper answers:      no helper in this sandbox: its work runs in this process, with your own\n"
                   "                     rights (set BRIMSTELL_HELPER_SOCKET to use a brimstell-helper)\n");
    } else if (!version) {
        fmt::print("Helper answers:      no\n");
    } else if (*version == expected) {
        fmt::print("Helper answers:      yes, protocol version {}\n", *version);
    } else {
        fmt::print("Helper answers:      yes, but with protocol version {}; this brimstell expects {}\n", *version,
                   expected);
    }
}

}  // namespace

void addHelperCommands(CLI::App& app, int& exitCode) {
    auto* helper = app.add_subcommand("helper", "The root helper that moves and measures what your own account can't");
    helper->require_subcommand(1);

    static bool statusJson = false;
    jsonCommand(helper, "status", "Show the helper's registration, whether it answers, and its version", statusJson)
        ->callback([] { printStatus(statusJson); });

    auto* install = helper->add_subcommand(
        "install", "Register the helper with the system (on Linux: systemd units in /etc/systemd/system; needs root)");
    install->callback([&exitCode] {
        const auto registrar = quorv::host().helperService;
        std::string failure = "The helper can't be registered here.";
        if (registrar && registrar->registerService(failure)) {
            fmt::print("The root helper is installed. Registration: {}.\n",
                       brimstell::AgentService::statusText(helperStatus()));
            exitCode = 0;
            return;
        }
        error(failure);
        exitCode = 1;
    });

    auto* uninstall = helper->add_subcommand("uninstall", "Unregister the helper and remove its units (needs root)");
    uninstall->callback([&exitCode] {
        const auto registrar = quorv::host().helperService;
        std::string failure = "The helper can't be unregistered here.";
        if (registrar && registrar->unregisterService(failure)) {
            fmt::print("The root helper is uninstalled.\n");
            exitCode = 0;
            return;
        }
        error(failure);
        exitCode = 1;
    });
}

}  // namespace cli
