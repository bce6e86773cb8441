#pragma once
// A simulator runtime that Xcode keeps, as `xcrun simctl runtime list --json` tells it.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brimstell {

struct SimRuntime {
    std::string identifier;   // what `simctl runtime delete` takes
    std::string platform;     // "iOS", "watchOS", "tvOS", "visionOS"
    std::string version;
    std::int64_t bytes = 0;
    double lastUsedAt = 0;    // seconds since 1970; 0 when not said
    bool deletable = false;

    // "iOS 17.0".
    std::string name() const { return version.empty() ? platform : platform + " " + version; }

    // The runtimes of `simctl runtime list --json` (keyed by identifier), or of the older
    // `simctl list -j runtimes` ("runtimes": […], none of which can be deleted this way).
    static std::vector<SimRuntime> parse(std::string_view text);
    // "com.apple.platform.iphonesimulator" → "iOS", and the other simulator platforms; empty
    // for an identifier that names none.
    static std::string platformName(std::string_view platformIdentifier);
};

}  // namespace brimstell
