#pragma once
// What starts with a Linux desktop session or user manager: XDG autostart entries and systemd
// unit files, read into what the start-up page needs.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/insight/BackgroundItem.hpp"

namespace brimstell {

struct Autostart {
    // One autostart ".desktop" file: its name, its program, and whether the session starts it.
    struct Entry {
        std::string name;
        std::optional<std::string> program;  // the first word of Exec, quotes removed
        bool enabled = true;                 // false for Hidden=true or an "…Autostart-enabled=false"
        std::vector<std::string> onlyShowIn;  // the desktops it starts in alone ("GNOME;KDE;")
        std::vector<std::string> notShowIn;   // the desktops it doesn't start in
    };
    // Whether the entry starts in a session of these desktops (XDG_CURRENT_DESKTOP, "ubuntu:GNOME"):
    // not when a desktop is in NotShowIn, or OnlyShowIn names none of them. With no desktop known
    // (no session to ask) neither list decides: the entry counts as starting.
    static bool startsIn(const Entry& entry, std::string_view desktops);
    // The [Desktop Entry] group of a desktop file; nothing when there is none (or it is no
    // Application). Keys of other groups and localised names are ignored.
    static std::optional<Entry> desktopEntry(std::string_view text);

    // The program of a systemd unit: the first word of its first ExecStart= (its "-", "@", "+",
    // "!" and ":" prefixes dropped).
    static std::optional<std::string> unitProgram(std::string_view text);

    // What starts on this Linux host: user units (~/.config/systemd/user, then /etc/systemd/user
    // for all users), system units (/etc/systemd/system) and autostart entries (~/.config/autostart,
    // /etc/xdg/autostart, where an entry of the user's own folder stands in for the one of the same
    // name), with whether each is enabled and running.
    static std::vector<BackgroundItem> items();

    // The desktop file's text switched on or off: in its [Desktop Entry] group, the "Hidden" and
    // "…-Autostart-enabled" keys are taken out and, to switch it off, "Hidden=true" goes in right
    // after the group's header. Everything else stays as written. Nothing without that group.
    static std::optional<std::string> switched(std::string_view text, bool on);

    // The systemctl calls (arguments) that switch a unit of the user's manager. The user's own
    // units are disabled and enabled, and stopped or started with it ("--now"). A unit of all
    // users may be enabled for everyone, which a user's "disable" doesn't undo: it is masked for
    // this user instead, and unmasked before being enabled again.
    static std::vector<std::vector<std::string>> unitSwitch(const std::string& unit, BackgroundItem::Scope scope, bool on);
    // Switches a Linux item: units through systemctl (the system's through the root helper),
    // autostart entries through the user's own entry in ~/.config/autostart. Crontab lines aren't
    // switched here.
    static bool setEnabled(const BackgroundItem& item, bool on);

    // The first word of a command line, as desktop files and units quote it.
    static std::optional<std::string> firstWord(std::string_view command);
};

}  // namespace brimstell
