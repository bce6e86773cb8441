#pragma once
// The cloud page's model: the providers' folders with what is downloaded in each, and the release
// of what is ticked.
//
// Used from one thread; the measuring and the release run on the background pool and are waited for.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/cloud/CloudEntry.hpp"

namespace brimstell {

class CloudModel {
public:
    std::vector<CloudEntry> providers;
    bool scanning = false;
    bool removing = false;
    bool scanned = false;
    std::int64_t total = 0;         // downloaded bytes of every provider
    std::int64_t selectedSize = 0;  // of the ticked ones
    std::optional<std::string> message;  // the last release's result line

    // Measures every provider's folder.
    void scan();
    // Releases the downloads of the ticked providers under the clean lock, then measures again.
    CloudReleaseResult removeSelected();
    // Sets total and selectedSize from the providers and their ticks.
    void recount();
    // The line the page shows under its list now.
    std::string status() const;

    static constexpr const char* measuringText = "Measuring cloud folders";
    static constexpr const char* removingText = "Removing downloads";
    // What to do with what a release can't take back.
    static constexpr const char* guidanceText =
        "Downloaded cloud files: **Remove Download** in Finder (OneDrive: **Free Up Space**).";
    static constexpr const char* noneText = "No cloud folders in this account.";
    // Where there is no file provider (Linux).
    static constexpr const char* unavailableText =
        "Nothing to release here: Linux has no cloud file provider that can turn a downloaded file back into a cloud-only one.";
    // The kept counts follow the size, each a number and its text: "Released 12 MB; 2 not yet
    // uploaded, kept; 1 kept: set to stay available offline". A semicolon between them, as the
    // texts hold commas of their own.
    static constexpr const char* notUploadedText = " not yet uploaded, kept";
    static constexpr const char* keptOfflineText = " kept: set to stay available offline";
    static constexpr const char* conflictText = " with unresolved conflicts, kept";
    static constexpr const char* failedText = " could not be released";
    static std::string resultLine(const CloudReleaseResult& result);
    // "Release 12 MB of downloaded files? They stay in the cloud and download again when opened."
    static std::string confirmText(std::int64_t bytes);
};

}  // namespace brimstell
