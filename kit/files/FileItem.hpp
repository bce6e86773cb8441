#pragma once

#include <cstdint>
#include <string>

namespace brimstell {

// One found file or folder: the unit of every scanner's result and of every clean.
struct FileItem {
    std::string location;   // full path (a real location, under the sandbox root when there is one)
    std::string label;      // what a list shows for it
    std::int64_t size = 0;  // allocated bytes

    bool operator==(const FileItem&) const = default;
};

}  // namespace brimstell
