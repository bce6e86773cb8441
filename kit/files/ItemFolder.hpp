#pragma once
// Opening the folder an item to be moved lies in, so that what is moved and what is recorded as
// its place are the same folder.

#include <string>

#include "support/posix/UniqueFd.hpp"

namespace brimstell {

// The folder of the item at path (slashes at its end removed): resolved once to its real path,
// because people put links on their paths on purpose, then opened one component at a time
// without following links and checked to be that real path. realFolder is set to it. An invalid
// descriptor with a sentence in error when it can't be opened or a link was swapped in meanwhile.
quorv::UniqueFd openItemFolder(const std::string& path, std::string& realFolder, std::string& error);

}  // namespace brimstell
