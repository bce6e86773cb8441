#pragma once
// Brimstell's files where an earlier version kept them (on Linux: the state under
// ~/.local/share/brimstell, the settings as ~/.config/brimstell/com.quorv.brimstell.plist) move
// to where they live now (Host::formerPlaces), once, at the start of brimstell and the agent.

#include <cstddef>

namespace brimstell {

struct FormerPlaces {
    // Each entry of a former folder, or the former file, is renamed into its new place: never
    // over something already there, never through a link, never across file systems. What can't
    // move stays where it was and is tried again at the next start; nothing is reported (the old
    // place keeps working as a record until then). Cheap when there is nothing to move: one lstat
    // per former place. Returns how many entries moved.
    static std::size_t moveOver();
};

}  // namespace brimstell
