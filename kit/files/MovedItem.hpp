#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace brimstell {

// One item that a clean moved to a Trash.
struct MovedItem {
    std::string original;                 // where it was
    std::optional<std::string> trashed;   // where it is now, when the Trash reported it
    std::int64_t size = 0;                // bytes freed

    bool operator==(const MovedItem&) const = default;
};

// What one call of the mover did. moved and failed keep the order of the request.
// What became of one path of a request, in the request's order: moved (to trashed, freeing
// size), not moved (reason), or left to a listed folder that holds it, or to the same path listed
// before (movedWith): it shares that one's fate, and carries its reason when that one failed.
struct TrashOutcome {
    std::string path;
    std::optional<std::string> trashed;
    std::int64_t size = 0;
    std::string reason;
    std::string movedWith;

    bool moved() const { return reason.empty() && movedWith.empty(); }
    bool operator==(const TrashOutcome&) const = default;
};

struct TrashResult {
    std::vector<TrashOutcome> outcomes;  // one per path given
    std::int64_t freed = 0;
    std::vector<MovedItem> moved;
    std::vector<std::string> failed;
    // Why each failed location was not moved, a short sentence, for those who show it.
    std::map<std::string, std::string> reasons;
};

}  // namespace brimstell
