#pragma once
// What starts with a Linux desktop session or user manager: XDG autostart entries and systemd
// unit files, read into what the start-up page needs.

#include <optional>
#include <string>
#include <string_view>

namespace brimstell {

struct Autostart {
    // One autostart ".desktop" file: its name, its program, and whether the session starts it.
    struct Entry {
        std::string name;
        std::optional<std::string> program;  // the first word of Exec, quotes removed
        bool enabled = true;                 // false for Hidden=true or an "…Autostart-enabled=false"
    };
    // The [Desktop Entry] group of a desktop file; nothing when there is none (or it is no
    // Application). Keys of other groups and localised names are ignored.
    static std::optional<Entry> desktopEntry(std::string_view text);

    // The program of a systemd unit: the first word of its first ExecStart= (its "-", "@", "+",
    // "!" and ":" prefixes dropped).
    static std::optional<std::string> unitProgram(std::string_view text);

    // The first word of a command line, as desktop files and units quote it.
    static std::optional<std::string> firstWord(std::string_view command);
};

}  // namespace brimstell
