#pragma once
// The macOS Trash through the Foundation file manager. Built only on macOS.
//
// Moves go through -[NSFileManager trashItemAtURL:resultingItemURL:error:], which picks the Trash
// of the item's volume and Finder's names. list() reads the user's Trash folder with the date each
// item was added to it; the original place is in Finder's own records, which it doesn't read.

#include <memory>

#include "support/host/TrashBackend.hpp"

namespace brimstell {

std::shared_ptr<quorv::TrashBackend> makeMacTrash();

}  // namespace brimstell
