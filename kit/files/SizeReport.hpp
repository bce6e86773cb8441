#pragma once
// Sizes of several places at once, as a person asks for them (`brimstell size a b c`): each
// place's own size, and a total that counts every file once, as `du -c` does.

#include <cstdint>
#include <string>
#include <vector>

#include "kit/files/SizeWalker.hpp"

namespace brimstell {

struct SizedPlace {
    std::string path;
    bool exists = false;  // nothing at the path: no size, and an error for the caller to show
    SizeResult size;      // the place by itself, whatever else was asked for
};

struct SizeReport {
    std::vector<SizedPlace> places;  // in the order asked
    SizeResult total;                // the union: a place inside another, or given twice, and a file
                                     // hard-linked under several, count once
    std::int64_t missing = 0;        // places with nothing at them

    // Folders, over all places, whose entries couldn't all be read: their sizes are too small.
    std::int64_t unreadable() const { return total.unreadable; }
};

// Paths are measured as given (a final link is not followed). One walk when no place lies inside
// another; otherwise each place is also walked by itself, so that its own row is its whole size.
SizeReport measurePlaces(const std::vector<std::string>& paths);

}  // namespace brimstell
