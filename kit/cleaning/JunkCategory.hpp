#pragma once
// One row of the junk list: a category of found items, whether it is ticked for cleaning and
// whether cleaning it needs the root helper.

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "kit/cleaning/JunkKinds.hpp"
#include "kit/files/FileItem.hpp"

namespace brimstell {

struct JunkCategory {
    std::string name;   // the title, and the category's identity
    std::string icon;   // symbol name shown beside the title
    std::string note;   // one line under the title
    std::vector<FileItem> items;
    bool enabled = false;  // ticked for cleaning
    bool admin = false;    // cleaning it needs the root helper
    CacheKind group = CacheKind::other;

    // The sum of the items' sizes. Sizes also come from the helper's report, so a negative size
    // counts as nothing and the sum stops at the largest value rather than wrapping.
    std::int64_t total() const {
        constexpr auto most = std::numeric_limits<std::int64_t>::max();
        std::int64_t sum = 0;
        for (const auto& item : items) {
            if (item.size <= 0) continue;
            if (item.size > most - sum) return most;
            sum += item.size;
        }
        return sum;
    }
};

}  // namespace brimstell
