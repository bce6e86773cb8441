// The pieces of an update check that ask no network: Homebrew, the App Store address, the
// user's region, the running system's version, and the feed decisions.

#include <cctype>

#include <fmt/format.h>

#include "kit/developer/Brew.hpp"
#include "kit/updates/AppcastParser.hpp"
#include "kit/updates/SystemVersionText.hpp"
#include "kit/updates/UpdateAnswers.hpp"
#include "kit/updates/UpdateChecker.hpp"
#include "kit/updates/WebAddress.hpp"
#include "support/host/Host.hpp"
#include "support/plist/Plist.hpp"
#include "support/versions/Versions.hpp"

namespace brimstell {

std::optional<std::string> UpdateChecker::brew() { return Brew::location(); }

std::pair<std::string, bool> UpdateChecker::runBrew(const std::vector<std::string>& arguments, double timeout) {
    auto r = Brew::run(arguments, timeout);
    return {std::move(r.output), r.ok};
}

std::vector<AppUpdate> UpdateChecker::parseBrew(const std::string& text) { return UpdateAnswers::parseBrew(text); }

std::vector<AppUpdate> UpdateChecker::homebrew() {
    auto [output, ok] = runBrew({"outdated", "--cask", "--json=v2"}, brewTimeout);
    if (!ok) return {};
    return parseBrew(output);
}

std::string UpdateChecker::region() {
    // The first of LC_ALL, LC_MESSAGES and LANG that is set decides: "en_GB.UTF-8@euro" gives GB.
    const auto& h = quorv::host();
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto value = h.env(name);
        if (!value || value->empty()) continue;
        const auto cut = value->find_first_of(".@");
        const std::string locale = value->substr(0, cut);
        const auto underscore = locale.find('_');
        if (underscore == std::string::npos) return "US";
        const std::string code = locale.substr(underscore + 1);
        const bool letters = code.size() == 2 && std::isupper(static_cast<unsigned char>(code[0])) &&
                             std::isupper(static_cast<unsigned char>(code[1]));
        return letters ? code : "US";
    }
    return "US";
}

std::string UpdateChecker::appStoreAddress(const AppBundle& app) {
    std::string host = appStoreHost;
    const auto& h = quorv::host();
    if (const auto own = h.sandbox ? h.env("BRIMSTELL_SANDBOX_APPSTORE_HOST") : std::nullopt) {
        // Only loopback: a sandbox never sends an App Store lookup anywhere else.
        if (own->starts_with("127.0.0.1:") || own->starts_with("localhost:")) host = *own;
    }
    return fmt::format("https://{}/lookup?bundleId={}&entity=macSoftware&country={}", host,
                       WebAddress::queryValue(app.bundleID), WebAddress::queryValue(region()));
}

std::string UpdateChecker::systemVersion() {
    const auto& h = quorv::host();
    if (!h.isMac()) return "";  // no Mac version here: a release that names a minimum system is passed over
    if (!h.sandbox) return quorv::osNumber(macSystemVersionText());
    // The sandbox Mac lays out the file a Mac keeps its version in.
    const auto plist = quorv::plist::readFile(h.path("/System/Library/CoreServices/SystemVersion.plist"));
    const auto* version = plist ? quorv::plist::find(*plist, "ProductVersion") : nullptr;
    const auto* text = version ? version->get<std::string>() : nullptr;
    return text ? quorv::osNumber(*text) : "";
}

std::optional<AppUpdate> UpdateChecker::feedUpdate(const AppBundle& app, const AppcastItem& item) {
    const std::string& installed = app.build.empty() ? app.version : app.build;
    if (!quorv::Versions::less(installed, item.version)) return std::nullopt;
    AppUpdate u;
    u.name = app.name;
    u.source = AppUpdate::Source::sparkle;
    u.app = app;
    u.installed = app.version;
    u.available = item.shortVersion.empty() ? item.version : item.shortVersion;
    u.item = item;
    return u;
}

std::vector<std::string> UpdateChecker::passedOver(const std::vector<AppcastItem>& items, const std::string& os,
                                                   const std::optional<AppcastItem>& chosen, const AppBundle& app) {
    std::vector<std::string> why;
    const std::string& installed = app.build.empty() ? app.version : app.build;
    for (const auto& item : items) {
        const std::string shown = item.shortVersion.empty() ? item.version : item.shortVersion;
        if (chosen && item == *chosen) continue;
        if (item.channel) {
            why.push_back(shown + ": on the " + (item.channel->empty() ? "unnamed" : *item.channel) + " channel");
        } else if (item.minimumSystem && quorv::Versions::less(os, *item.minimumSystem)) {
            why.push_back(shown + ": needs system " + *item.minimumSystem + " or later");
        } else if (!quorv::Versions::less(installed, item.version)) {
            why.push_back(shown + ": not newer than the installed " + installed);
        } else {
            why.push_back(shown + ": an earlier release than the one chosen");
        }
    }
    return why;
}

}  // namespace brimstell
