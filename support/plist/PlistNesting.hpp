#pragma once
// The nesting check run on a property list before libplist parses it: libplist and the tree it
// builds recurse once per level, so a hostile list nested deep enough crashes the process.

#include <string_view>

#include "support/text/Nesting.hpp"

namespace quorv::plist {

// True when the property list (binary "bplist00", else XML) nests no more than limit arrays and
// dictionaries. A binary list is also refused when its objects refer to each other in a circle,
// when its trailer or offset table points outside the bytes, or when unfolding its shared objects
// into a tree would give far more nodes than the bytes could hold (a few shared arrays nested in
// each other unfold exponentially).
bool nestingWithin(std::string_view bytes, int limit = nesting::maxDepth);

// The binary part alone; bytes begin with "bplist".
bool binaryNestingWithin(std::string_view bytes, int limit = nesting::maxDepth);

}  // namespace quorv::plist
