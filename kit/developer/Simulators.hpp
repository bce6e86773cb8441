#pragma once
// Xcode's simulators: whether Xcode is there, how simctl runs, and what its device list says.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/developer/DeveloperTools.hpp"
#include "kit/developer/SimDevice.hpp"

namespace brimstell {

struct Simulators {
    static std::optional<std::string> xcrun();        // /usr/bin/xcrun
    static std::optional<std::string> xcodeSelect();  // /usr/bin/xcode-select
    // Whether `xcode-select -p` names a developer folder inside an app (not the bare command-line tools).
    static bool xcodePresent();
    // Runs `xcrun simctl` with the arguments.
    static ToolRun simctl(const std::vector<std::string>& arguments, double timeout = defaultTimeout);

    // The devices of `simctl list devices --json`, runtime by runtime; none when it isn't that JSON.
    static std::vector<SimDevice> parseDevices(std::string_view text);
    // "com.apple.CoreSimulator.SimRuntime.iOS-17-0" → "iOS 17.0"; a key of another kind as it is.
    static std::string runtimeName(std::string_view key);
    // 36 hexadecimal digits and hyphens: the only identifiers handed to simctl.
    static bool validIdentifier(std::string_view identifier);

    static constexpr double defaultTimeout = 120;
    static constexpr double deleteTimeout = 600;
    static constexpr const char* notInstalled = "Xcode isn't installed";
};

}  // namespace brimstell
