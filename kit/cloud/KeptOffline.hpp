#pragma once
// "cloud.keptOffline": the items a release found set to stay available offline.
//
// Kept as a sorted list of their paths (as the Mac names them), not a count: a later run can then
// tell which cloud folder each belongs to and report it there, and a release of a folder replaces
// that folder's entries with what it found this time, so an item the user has since let go of
// drops out rather than being counted for ever. At most maxPaths are kept, so that a folder of
// thousands of pinned files can't swell the settings domain; past that the list is cut and the
// folder still shows as many as were kept.

#include <cstddef>
#include <string>
#include <vector>

namespace brimstell {

struct KeptOffline {
    static constexpr std::size_t maxPaths = 500;

    // The remembered paths as locations of this host (a sandbox's under its root).
    static std::vector<std::string> locations();
    // How many of them lie below root.
    static std::size_t countBelow(const std::string& root);
    // Replaces what is remembered below each of roots with found (locations).
    static void replace(const std::vector<std::string>& roots, const std::vector<std::string>& found);
};

}  // namespace brimstell
