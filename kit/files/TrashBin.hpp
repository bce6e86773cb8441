#pragma once
// The user's Trash as the pages and Auto Clean see it, over the host's Trash backend: its items
// with their sizes and dates, its total, and deleting items for good. Nothing throws; with no
// backend the Trash is empty.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brimstell {

struct TrashBinItem {
    std::string location;                     // the item's path in the Trash
    std::optional<std::string> originalPath;  // where it was, when the Trash remembers
    std::optional<double> dateAdded;          // when it was put there, seconds since 1970
    std::int64_t size = 0;                    // allocated bytes (FS::size)
};

struct TrashBin {
    // The top-level items of every Trash folder of the user, each with its size.
    static std::vector<TrashBinItem> items();
    static std::int64_t totalSize();

    // Deletes these items for good (locations from items()); returns the locations now gone.
    static std::vector<std::string> deleteForGood(const std::vector<std::string>& locations);

    // The items put in the Trash more than `days` days (of 86,400 seconds) before now: dateAdded
    // strictly before now - days × 86,400, so an item exactly `days` old stays. Items without a
    // date are never chosen, since their age is unknown. Negative days choose nothing.
    static std::vector<TrashBinItem> olderThan(int days, double now);
    static bool isOlderThan(const std::optional<double>& dateAdded, int days, double now);

    // Deletes these items (from olderThan) for good under the clean lock; returns the locations now
    // gone, or nullopt when another clean holds the lock, and then nothing is deleted.
    static std::optional<std::vector<std::string>> emptyItems(const std::vector<TrashBinItem>& chosen);

    // Deletes for good the items older than `days` days at host().now() under the clean lock;
    // returns the bytes freed (the sizes of the items that are gone afterwards), or nullopt when
    // another clean holds the lock, and then nothing is deleted.
    static std::optional<std::int64_t> emptyOlderThan(int days);
};

}  // namespace brimstell
