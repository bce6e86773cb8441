#include "kit/updates/UpdateChecker.hpp"

#include <algorithm>
#include <memory>

#include "kit/updates/AppcastParser.hpp"
#include "kit/updates/UpdateAnswers.hpp"
#include "support/background/Background.hpp"
#include "support/text/Unicode.hpp"

namespace brimstell {
namespace {

// One app's question: its feed read as it streams in, or the App Store's answer collected.
struct Ask {
    const AppBundle* app = nullptr;
    AppUpdate::Source source = AppUpdate::Source::sparkle;
    std::unique_ptr<AppcastParser> feed;
    std::string answer;
};

UpdateSession::Request requestFor(Ask& ask) {
    if (ask.source == AppUpdate::Source::appStore) {
        return {UpdateChecker::appStoreAddress(*ask.app), [&ask](std::string_view piece) {
                    if (ask.answer.size() + piece.size() > UpdateAnswers::maxAnswerBytes) return false;
                    ask.answer.append(piece);
                    return true;
                }};
    }
    ask.feed = std::make_unique<AppcastParser>();
    // A malformed or hostile feed stops its own transfer at the first bad byte.
    return {*ask.app->feed, [&ask](std::string_view piece) { return ask.feed->feed(piece, false); }};
}

// What came of one app's question, with the reasons --explain gives.
AppCheck settle(Ask& ask, const UpdateSession::Answer& answer, const std::string& os, std::optional<AppUpdate>& update) {
    AppCheck c{ask.app->name, std::string(AppUpdate::label(ask.source)), AppCheck::Outcome::notReached, {}, {}};
    if (!answer.reached || answer.status != 200) return c;
    if (ask.source == AppUpdate::Source::appStore) {
        const auto release = UpdateAnswers::storeRelease(ask.answer);
        if (!release) return c;
        c.chosen = release->version;
        update = UpdateAnswers::storeUpdate(*ask.app, *release);
    } else {
        if (!ask.feed->feed({}, true)) return c;
        const auto item = AppcastParser::newest(ask.feed->items, os);
        c.passedOver = UpdateChecker::passedOver(ask.feed->items, os, item, *ask.app);
        if (!item) return c;
        c.chosen = item->shortVersion.empty() ? item->version : item->shortVersion;
        update = UpdateChecker::feedUpdate(*ask.app, *item);
    }
    c.outcome = update ? AppCheck::Outcome::update : AppCheck::Outcome::upToDate;
    return c;
}

void sortByName(std::vector<AppUpdate>& updates) {
    // Lower-cased text in code-point order stands in for the locale's collation, as for the apps.
    std::stable_sort(updates.begin(), updates.end(), [](const AppUpdate& a, const AppUpdate& b) {
        return quorv::lowerCased(a.name) < quorv::lowerCased(b.name);
    });
}

// Every app's question at once; Homebrew is not asked here.
UpdateCheck checkApps(const std::vector<AppBundle>& apps, const UpdateSession::Options& options) {
    const std::string os = UpdateChecker::systemVersion();
    std::vector<Ask> asks(apps.size());
    std::vector<UpdateSession::Request> requests;
    std::vector<std::size_t> asked;  // index of the ask behind each request
    for (std::size_t i = 0; i < apps.size(); ++i) {
        asks[i].app = &apps[i];
        if (!apps[i].fromAppStore && !apps[i].feed) continue;
        asks[i].source = apps[i].fromAppStore ? AppUpdate::Source::appStore : AppUpdate::Source::sparkle;
        requests.push_back(requestFor(asks[i]));
        asked.push_back(i);
    }
    const auto answers = UpdateSession::fetchAll(requests, options);

    UpdateCheck result;
    result.apps.resize(apps.size());
    std::size_t next = 0;
    for (std::size_t i = 0; i < apps.size(); ++i) {
        if (next == asked.size() || asked[next] != i) {
            result.cantCheck.push_back(apps[i]);
            result.apps[i] = {apps[i].name, "", AppCheck::Outcome::cantCheck, {}, {}};
            continue;
        }
        std::optional<AppUpdate> update;
        result.apps[i] = settle(asks[i], answers[next++], os, update);
        if (update) result.updates.push_back(std::move(*update));
        if (result.apps[i].outcome == AppCheck::Outcome::upToDate) ++result.upToDate;
        if (result.apps[i].outcome == AppCheck::Outcome::notReached) result.failed.push_back(apps[i]);
    }
    return result;
}

}  // namespace

UpdateCheck UpdateChecker::check(const std::vector<AppBundle>& apps) { return check(apps, UpdateSession::hostOptions()); }

UpdateCheck UpdateChecker::check(const std::vector<AppBundle>& apps, const UpdateSession::Options& options) {
    // Homebrew runs on a worker while every app's request goes out at once on this thread.
    auto casks = quorv::Background::run([] { return homebrew(); });
    UpdateCheck result = checkApps(apps, options);
    for (auto& u : casks.get()) result.updates.push_back(std::move(u));
    sortByName(result.updates);
    return result;
}

UpdateChecker::Outcome UpdateChecker::sparkle(const AppBundle& app) {
    AppBundle feedOnly = app;
    feedOnly.fromAppStore = false;
    if (!feedOnly.feed) return {};
    auto one = checkApps({feedOnly}, UpdateSession::hostOptions());
    return {one.updates.empty() ? std::nullopt : std::optional(one.updates.front()),
            one.apps.front().outcome != AppCheck::Outcome::notReached};
}

UpdateChecker::Outcome UpdateChecker::appStore(const AppBundle& app) {
    AppBundle storeOnly = app;
    storeOnly.fromAppStore = true;
    auto one = checkApps({storeOnly}, UpdateSession::hostOptions());
    return {one.updates.empty() ? std::nullopt : std::optional(one.updates.front()),
            one.apps.front().outcome != AppCheck::Outcome::notReached};
}

}  // namespace brimstell
