#include "kit/updates/UpdateAnswers.hpp"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "support/text/Nesting.hpp"
#include "support/versions/Versions.hpp"

namespace brimstell {
namespace {

using json = nlohmann::json;

// The JSON value of an answer; discarded when it is too long, too deep or not JSON.
json parsed(std::string_view text) {
    if (text.size() > UpdateAnswers::maxAnswerBytes || !quorv::nesting::jsonWithin(text)) {
        return json(json::value_t::discarded);
    }
    return json::parse(text, nullptr, false);
}

}  // namespace

std::optional<UpdateAnswers::StoreRelease> UpdateAnswers::storeRelease(std::string_view body) {
    const json j = parsed(body);
    if (!j.is_object()) return std::nullopt;
    const auto results = j.find("results");
    if (results == j.end() || !results->is_array() || results->empty()) return std::nullopt;
    const json& first = results->front();
    if (!first.is_object()) return std::nullopt;
    const auto version = first.find("version");
    if (version == first.end() || !version->is_string()) return std::nullopt;
    StoreRelease release{version->get<std::string>(), std::nullopt};
    const auto track = first.find("trackId");
    if (track != first.end() && track->is_number_integer()) release.trackId = track->get<std::int64_t>();
    return release;
}

std::optional<AppUpdate> UpdateAnswers::storeUpdate(const AppBundle& app, const StoreRelease& release) {
    if (!quorv::Versions::less(app.version, release.version)) return std::nullopt;
    AppUpdate u;
    u.name = app.name;
    u.source = AppUpdate::Source::appStore;
    u.app = app;
    u.installed = app.version;
    u.available = release.version;
    // Without a track id there is no page to open; the update stands all the same.
    if (release.trackId) u.storeURL = "macappstore://apps.apple.com/app/id" + std::to_string(*release.trackId);
    return u;
}

std::vector<AppUpdate> UpdateAnswers::parseBrew(std::string_view text) {
    std::vector<AppUpdate> updates;
    const json j = parsed(text);
    if (!j.is_object()) return updates;
    const auto casks = j.find("casks");
    if (casks == j.end() || !casks->is_array()) return updates;
    for (const auto& c : *casks) {
        if (!c.is_object()) continue;
        const auto name = c.find("name");
        const auto current = c.find("current_version");
        const auto installed = c.find("installed_versions");
        if (name == c.end() || !name->is_string() || current == c.end() || !current->is_string()) continue;
        if (installed == c.end() || !installed->is_array() || installed->empty()) continue;
        if (!std::all_of(installed->begin(), installed->end(), [](const json& v) { return v.is_string(); })) continue;
        AppUpdate u;
        u.name = name->get<std::string>();
        u.cask = u.name;
        u.source = AppUpdate::Source::homebrew;
        u.installed = installed->front().get<std::string>();
        u.available = current->get<std::string>();
        updates.push_back(std::move(u));
    }
    return updates;
}

}  // namespace brimstell
