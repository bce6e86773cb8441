#pragma once
// What the update sources answer, read into updates: the App Store's lookup answer and
// Homebrew's list of outdated casks. Nothing here touches the network or runs a tool.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/updates/AppUpdate.hpp"

namespace brimstell {

struct UpdateAnswers {
    // The first result of an App Store lookup answer.
    struct StoreRelease {
        std::string version;                // the store's version
        std::optional<std::int64_t> trackId;  // the app's store id
    };
    // The first result's version and track id; nullopt when the answer isn't JSON, its
    // "results" is missing or empty, or the first result has no text "version".
    static std::optional<StoreRelease> storeRelease(std::string_view body);
    // The App Store update for app, when the store's release is newer than its version.
    static std::optional<AppUpdate> storeUpdate(const AppBundle& app, const StoreRelease& release);

    // `brew outdated --cask --json=v2`: one update per cask with a text "name", a text
    // "current_version" and a non-empty list of texts "installed_versions"; others are skipped,
    // and output that isn't JSON gives none.
    static std::vector<AppUpdate> parseBrew(std::string_view text);

    // Answers longer than this are not read.
    static constexpr std::size_t maxAnswerBytes = 8u << 20;
};

}  // namespace brimstell
