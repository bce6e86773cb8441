#include "kit/sandbox/DemoFeeds.hpp"

#include "kit/updates/AppBundles.hpp"
#include "kit/updates/UpdateChecker.hpp"
#include "support/host/Host.hpp"

namespace brimstell {
namespace {

std::string release(const std::string& version, const std::string& shown, const std::string& extra = "") {
    return "<item><title>" + shown + "</title><sparkle:version>" + version + "</sparkle:version>"
           "<sparkle:shortVersionString>" + shown + "</sparkle:shortVersionString>" + extra +
           "<enclosure url=\"https://downloads.example.com/" + version + ".zip\" length=\"1048576\" type=\"application/octet-stream\"/></item>";
}

std::string feed(const std::string& items) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>" + items + "</channel></rss>\n";
}

// The path and query of an address, which is what the server is asked for.
std::string pathOf(const std::string& address) {
    const auto slash = address.find('/', address.find("://") + 3);
    return slash == std::string::npos ? "/" : address.substr(slash);
}

std::string storeAnswer(const std::string& version, long trackId) {
    return R"({"resultCount":1,"results":[{"kind":"mac-software","version":")" + version +
           R"(","trackId":)" + std::to_string(trackId) + "}]}";
}

}  // namespace

std::vector<std::pair<std::string, std::string>> DemoFeeds::answers() {
    std::vector<std::pair<std::string, std::string>> out = {
        {"/editor/appcast.xml",
         feed(release("300", "3.0", "<sparkle:minimumSystemVersion>15.0</sparkle:minimumSystemVersion>") +
              release("250", "2.5.0", "<sparkle:releaseNotesLink>https://updates.example.com/editor/2.5.0.html</sparkle:releaseNotesLink>") +
              release("241", "2.4.1"))},
        {"/spotify/appcast.xml",
         feed(release("130000", "1.3.0", "<sparkle:channel>beta</sparkle:channel>") + release("120500", "1.2.31.1205"))},
    };
    // The App Store's lookups, with the region this host's locale gives.
    const auto& h = quorv::host();
    const std::pair<const char*, std::string> store[] = {{"/Applications/Notebook.app", storeAnswer("5.2", 1'444'383'602)},
                                                         {"/Applications/Utilities/Disk Inspector.app", storeAnswer("1.0b3", 1'491'071'483)}};
    for (const auto& [location, body] : store) {
        if (const auto app = AppBundles::read(h.path(location), false)) {
            out.emplace_back(pathOf(UpdateChecker::appStoreAddress(*app)), body);
        }
    }
    return out;
}

std::vector<std::string> DemoFeeds::hostNames() { return {"*.example.com", UpdateChecker::appStoreHost}; }

}  // namespace brimstell
