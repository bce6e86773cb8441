#pragma once
// One release in an app's update feed (an appcast item).

#include <cstdint>
#include <optional>
#include <string>

namespace brimstell {

struct AppcastItem {
    std::string version;                       // sparkle:version, the machine version; never empty
    std::string shortVersion;                  // sparkle:shortVersionString, the shown one; may be empty
    std::string url;                           // the enclosure's download address
    std::optional<std::string> edSignature;    // the enclosure's sparkle:edSignature, base64
    std::optional<std::int64_t> length;        // the enclosure's length in bytes
    std::optional<std::string> minimumSystem;  // sparkle:minimumSystemVersion
    std::optional<std::string> channel;        // sparkle:channel (a beta, a nightly…)
    std::optional<std::string> notes;          // sparkle:releaseNotesLink, http or https only

    bool operator==(const AppcastItem&) const = default;
};

}  // namespace brimstell
