#pragma once
// Sizes as people read them: decimal units, as the platform's file byte-count formatter writes them.

#include <cstdint>
#include <string>

namespace quorv {

// "0 bytes", "1 byte", "999 bytes", "1 kB", "1.2 MB", "12.35 GB", "5 MB".
std::string formatSize(std::int64_t bytes);

}  // namespace quorv
