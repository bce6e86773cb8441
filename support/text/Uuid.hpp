#pragma once

#include <string>

namespace quorv {

// A new random (version 4) UUID in its upper-case string form, as the platform writes them.
std::string newUuid();

}  // namespace quorv
