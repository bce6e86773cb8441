#pragma once
// What starts by itself: a launchd job from one of the three launch folders, and a login item or
// background helper that the background-task-management database knows.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/insight/Provenance.hpp"
#include "kit/insight/Signature.hpp"

namespace brimstell {

struct BackgroundItem {
    enum class Scope { user, allUsers, system };
    // What makes it start: a launchd property list on a Mac; on Linux a systemd unit, an XDG
    // autostart entry or a line of the user's crontab.
    enum class Source { launchd, unit, autostart, cron };

    std::string label;
    std::string plist;                   // location of the property list
    std::optional<std::string> program;  // "Program", else the first of "ProgramArguments"
    Scope scope = Scope::user;
    bool enabled = true;
    std::optional<std::string> listedName;  // its "Name" in the background-task database
    std::optional<Signature> signature;
    std::optional<double> added;  // creation of the plist, seconds since 1970
    bool running = false;
    Source source = Source::launchd;
    // On Linux, in place of a signature: the package that owns the program.
    std::optional<Provenance> provenance;

    bool operator==(const BackgroundItem&) const = default;

    // "Your account", "All users", "System".
    static const char* scopeLabel(Scope scope);
    // The page's caption over the items of a scope, in the words of the host's platform.
    static const char* caption(Scope scope);
    static constexpr const char* appsCaption = "Apps that open when you log in";
    static constexpr const char* helpersCaption = "Helpers that apps start in the background";

    // The name people see: the app's name when the program lies inside an app, else the label.
    std::string shownName() const;
    // "Added in the last 7 days" and "Left behind by an app you removed", as they apply.
    std::vector<std::string> notes(double now) const;
    // Whether the program path is absolute and nothing is there now.
    bool programGone() const;
    bool worthALook(double now) const;
};

struct LoginItem {
    enum class Kind { app, inside };

    std::string id;
    std::string name;
    Kind kind = Kind::app;
    std::string url;  // location of the item
    std::optional<std::string> appName;
    std::optional<std::string> appURL;
    std::optional<std::string> bundleID;
    bool enabled = true;
    bool running = false;
    std::optional<Signature> signature;

    bool operator==(const LoginItem&) const = default;

    static constexpr const char* note = "Change in System Settings → Login Items";
    static constexpr const char* settingsAddress =
        "x-apple.systempreferences:com.apple.LoginItems-Settings.extension";
    bool worthALook() const;
};

// The name an app-held program goes by: "/Applications/Foo.app/Contents/MacOS/foo" → "Foo";
// nothing when the path holds no ".app/".
std::optional<std::string> appNameInPath(std::string_view program);
// Whether added (seconds since 1970) is strictly later than now minus 7 days.
bool addedLately(std::optional<double> added, double now);

}  // namespace brimstell
