#include "kit/agent/ProcessHost.hpp"

#include "kit/agent/RecordedAgentService.hpp"
#include "kit/files/Admin.hpp"
#include "kit/agent/FormerPlaces.hpp"
#include "kit/files/InProcessHelperTransport.hpp"
#include "kit/files/SandboxTrash.hpp"
#include "kit/files/SocketHelperTransport.hpp"
#include "kit/health/SandboxHealthSource.hpp"
#include "support/notify/OutboxNotifier.hpp"
#include "support/settings/PlistFileStore.hpp"

#ifdef __APPLE__
#include "kit/agent/MacAppService.hpp"
#include "kit/files/MacHelper.hpp"
#include "kit/files/MacTrash.hpp"
#include "kit/health/MacHealthSource.hpp"
#include "shared/helper/HelperInfo.hpp"
#include "support/notify/MacNotifier.hpp"
#include "support/settings/MacDefaultsStore.hpp"
#else
#include "kit/agent/SystemdAgentService.hpp"
#include "kit/files/FreedesktopTrash.hpp"
#include "kit/files/SystemdHelperService.hpp"
#include "support/notify/DBusNotifier.hpp"
#endif

namespace brimstell {

namespace {

void addSettingsAndNotifier(quorv::Host* h) {
    // Settings: the real user defaults only on a real Mac; a sandbox Mac and Linux keep the
    // domain as a property-list file.
#ifdef __APPLE__
    if (!h->sandbox) {
        h->settings = quorv::makeMacDefaultsStore("com.quorv.brimstell");
    }
#endif
    if (!h->settings) h->settings = std::make_shared<quorv::PlistFileStore>(h->settingsFile());

    // Notifications: to the outbox file when one is named (tests, demos), else the platform's centre.
    // A sandbox Mac on Linux without an outbox shows them on the desktop's session bus.
    if (auto outbox = h->env("BRIMSTELL_OUTBOX"); outbox && !outbox->empty()) {
        h->notifier = std::make_shared<quorv::OutboxNotifier>(*outbox);
    } else {
#ifdef __APPLE__
        h->notifier = quorv::makeMacNotifier();
#else
        h->notifier = std::make_shared<quorv::DBusNotifier>();
#endif
    }
}

void addAgentServiceAndTrash(quorv::Host* h) {
    // Agent registration: a sandbox only records it; a live system asks its service manager.
    if (h->sandbox) {
        h->agentService =
            std::make_shared<RecordedAgentService>(h->path("/private/var/db/com.quorv.brimstell/agent-service-state"));
    } else {
#ifdef __APPLE__
        h->agentService = makeMacAppService(MacServiceKind::agent, "com.quorv.brimstell.agent.plist",
                                            "Background checks need macOS 13 or later.");
#else
        h->agentService = std::make_shared<SystemdAgentService>(h->executableDir + "/brimstell-agent");
#endif
    }

    // The Trash: a sandbox Mac's ~/.Trash, else the platform's own.
    if (h->sandbox) {
        h->trash = std::make_shared<SandboxTrash>();
    } else {
#ifdef __APPLE__
        h->trash = makeMacTrash();
#else
        h->trash = std::make_shared<FreedesktopTrash>();
#endif
    }
}

// Battery and disk facts: a sandbox Mac's files, a Mac's registry; Linux reads its own
// power-supply class and smartctl and needs no source.
void addHealth(quorv::Host* h) {
    if (h->sandbox && h->isMac()) {
        h->health = std::make_shared<SandboxHealthSource>();
        return;
    }
#ifdef __APPLE__
    h->health = makeMacHealthSource();
#endif
}

void addHelper(quorv::Host* h) {
    // The root helper. A sandbox records its registration and, unless BRIMSTELL_HELPER_SOCKET names
    // the socket of a helper daemon started for it (brimstell-helper --root <sandbox>), calls the
    // helper's dispatcher in-process, with this process's own rights. A live system talks to the
    // daemon it registered: XPC on a Mac, the socket /run/brimstell/helper.sock on Linux (never
    // redirected by a variable there).
    if (h->sandbox) {
        h->helperService = std::make_shared<RecordedAgentService>(
            h->path("/private/var/db/com.quorv.brimstell/helper-service-state"), "The helper");
        if (auto socket = h->env("BRIMSTELL_HELPER_SOCKET"); socket && !socket->empty() && (*socket)[0] == '/') {
            h->helper = std::make_shared<SocketHelperTransport>(*socket);
        } else {
            h->helper = std::make_shared<InProcessHelperTransport>(h->root, h->systemPath(h->home).value_or(h->home));
        }
    } else {
#ifdef __APPLE__
        h->helperService = makeMacAppService(MacServiceKind::daemon, std::string(HelperInfo::plistName),
                                             "The helper needs macOS 13 or later.");
        h->helper = makeXPCHelperTransport();
#else
        h->helperService = std::make_shared<SystemdHelperService>(h->executableDir + "/brimstell-helper");
        h->helper = std::make_shared<SocketHelperTransport>(SystemdHelperService::socketPath);
#endif
    }
}

}  // namespace

std::shared_ptr<quorv::Host> makeHost(const std::map<std::string, std::string>& environment) {
    auto h = quorv::hostFromEnvironment(environment);
    addSettingsAndNotifier(h.get());
    addAgentServiceAndTrash(h.get());
    addHelper(h.get());
    addHealth(h.get());
    return h;
}

void installProcessHost() {
    quorv::setProcessHost(makeHost(quorv::processEnvironment()));
    // Files an earlier version kept elsewhere come over before anything reads them.
    if (!quorv::host().sandbox) FormerPlaces::moveOver();
    // The history puts back what the root helper moved through the helper client.
    Admin::connectHistory();
}

}  // namespace brimstell
