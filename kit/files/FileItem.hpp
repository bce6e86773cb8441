#pragma once
// One found file or folder: the unit of every scanner's result and of every clean.

#include <cstdint>
#include <string>

namespace brimstell {

struct FileItem {
    std::string location;    // where it is
    std::string id;          // a fresh UUID per found item
    std::int64_t size = 0;   // allocated bytes
    bool selected = true;    // ticked within its category
    std::string label;       // what the list shows
};

}  // namespace brimstell
