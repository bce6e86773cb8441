#pragma once
// A person's request to move paths to the Trash, as `brimstell trash` makes it: each path is
// refused at once (MoverGuard's sentence, or nothing there), or moved by the mover when their
// account may move it, or handed to the privileged helper when it may not (another account's
// item in a sticky folder, or an item in a folder they can't write). One outcome per path, in
// order; a path inside another listed one moves with it.

#include <string>
#include <vector>

#include "kit/files/MovedItem.hpp"

namespace brimstell {

// paths are absolute. freed counts what the mover moved (the helper doesn't say sizes).
TrashResult trashRequest(const std::vector<std::string>& paths, const std::string& source);

}  // namespace brimstell
