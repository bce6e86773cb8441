#include "kit/agent/ProcessHost.hpp"

#include "support/settings/PlistFileStore.hpp"

#ifdef __APPLE__
#include "support/settings/MacDefaultsStore.hpp"
#endif

namespace brimstell {

std::shared_ptr<quorv::Host> makeHost(const std::map<std::string, std::string>& environment) {
    auto h = quorv::hostFromEnvironment(environment);

    // Settings: the real user defaults only on a real Mac; a sandbox Mac and Linux keep the
    // domain as a property-list file.
#ifdef __APPLE__
    if (!h->sandbox) {
        h->settings = quorv::makeMacDefaultsStore("com.quorv.brimstell");
    }
#endif
    if (!h->settings) h->settings = std::make_shared<quorv::PlistFileStore>(h->settingsFile());
    return h;
}

void installProcessHost() { quorv::setProcessHost(makeHost(quorv::processEnvironment())); }

}  // namespace brimstell
