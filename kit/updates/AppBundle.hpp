#pragma once
// One installed app, as read from its bundle.

#include <optional>
#include <string>

namespace brimstell {

struct AppBundle {
    std::string url;                   // the ".app" folder
    std::string name;                  // what people see
    std::string bundleID;              // CFBundleIdentifier
    std::string version;               // CFBundleShortVersionString; empty when missing
    std::string build;                 // CFBundleVersion; empty when missing
    std::optional<std::string> feed;   // its update feed, only an https address
    std::optional<std::string> edKey;  // SUPublicEDKey, base64 as the property list has it
    bool fromAppStore = false;         // it holds an App Store receipt

    // An app is the folder it lives in.
    bool operator==(const AppBundle& other) const { return url == other.url; }
};

}  // namespace brimstell
