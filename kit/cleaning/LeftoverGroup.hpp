#pragma once
// What one removed app left in the Library.

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "kit/files/FileItem.hpp"

namespace brimstell {

struct LeftoverGroup {
    std::string bundleID;          // lower case
    std::string name;              // what people see: the identifier's last part, capitalised
    std::vector<FileItem> items;   // each ticked or not

    // The sizes of every item, and of the ticked ones; added up without overflowing.
    std::int64_t size() const { return sum(false); }
    std::int64_t selectedSize() const { return sum(true); }

private:
    std::int64_t sum(bool onlySelected) const {
        std::int64_t total = 0;
        for (const auto& item : items) {
            if ((onlySelected && !item.selected) || item.size <= 0) continue;
            total = item.size > std::numeric_limits<std::int64_t>::max() - total ? std::numeric_limits<std::int64_t>::max()
                                                                                   : total + item.size;
        }
        return total;
    }
};

}  // namespace brimstell
