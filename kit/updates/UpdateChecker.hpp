#pragma once
// Whether a newer version exists for each installed app: App Store apps are looked up in the
// App Store, others in their own update feed, and Homebrew is asked about its casks, all at once.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/updates/AppBundle.hpp"
#include "kit/updates/AppUpdate.hpp"
#include "kit/updates/AppcastItem.hpp"
#include "kit/updates/UpdateSession.hpp"

namespace brimstell {

// What was asked about one app and what came of it (what `brimstell updates --explain` shows).
struct AppCheck {
    enum class Outcome { update, upToDate, cantCheck, notReached };
    std::string name;
    std::string source;                 // "Sparkle", "App Store", or empty when none could be asked
    Outcome outcome = Outcome::cantCheck;
    std::optional<std::string> chosen;  // the release taken, as shown
    std::vector<std::string> passedOver;  // "2.0: on the beta channel", …
};

struct UpdateCheck {
    std::vector<AppUpdate> updates;   // by name, without regard to case
    int upToDate = 0;
    std::vector<AppBundle> cantCheck; // no App Store receipt and no feed, in the order given
    std::vector<AppBundle> failed;    // the source gave no useful answer, in the order given
    std::vector<AppCheck> apps;       // one per app, in the order given
};

struct UpdateChecker {
    // Has an update or not, and whether the app could be checked at all.
    struct Outcome {
        std::optional<AppUpdate> update;
        bool checked = false;
    };

    static UpdateCheck check(const std::vector<AppBundle>& apps);
    static UpdateCheck check(const std::vector<AppBundle>& apps, const UpdateSession::Options& options);
    static Outcome sparkle(const AppBundle& app);
    static Outcome appStore(const AppBundle& app);
    static std::vector<AppUpdate> homebrew();

    // The Homebrew command (Brew::location): /opt/homebrew/bin/brew, else /usr/local/bin/brew,
    // whichever is executable first; none when neither is.
    static std::optional<std::string> brew();
    // Runs brew (Brew::run) with the arguments, its auto-update, hints and clean-up switched off;
    // its standard output, and whether it ended well within the time.
    static std::pair<std::string, bool> runBrew(const std::vector<std::string>& arguments, double timeout);
    static std::vector<AppUpdate> parseBrew(const std::string& text);

    // The lookup address for an App Store app.
    static std::string appStoreAddress(const AppBundle& app);
    // The region of the user's locale ("GB" of en_GB.UTF-8), "US" when it names none.
    static std::string region();
    // The running system's version ("14.2.1").
    static std::string systemVersion();
    // The feed update for app, when item is newer than what is installed.
    static std::optional<AppUpdate> feedUpdate(const AppBundle& app, const AppcastItem& item);
    // Why each item other than the chosen one was not offered.
    static std::vector<std::string> passedOver(const std::vector<AppcastItem>& items, const std::string& os,
                                               const std::optional<AppcastItem>& chosen, const AppBundle& app);

    static constexpr double brewTimeout = 60;
    // The App Store's public lookup service. In a sandbox, BRIMSTELL_SANDBOX_APPSTORE_HOST may
    // name a loopback host ("127.0.0.1:8443") instead; anywhere else it is ignored.
    static constexpr const char* appStoreHost = "itunes.apple.com";
};

}  // namespace brimstell
