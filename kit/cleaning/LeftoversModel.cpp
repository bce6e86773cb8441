#include "kit/cleaning/LeftoversModel.hpp"

#include <set>

#include "kit/cleaning/CleanLock.hpp"
#include "kit/cleaning/Leftovers.hpp"
#include "kit/files/FS.hpp"
#include "support/background/Background.hpp"
#include "support/host/Host.hpp"
#include "support/host/PlatformWords.hpp"
#include "support/text/SizeText.hpp"

namespace brimstell {

std::string LeftoversModel::noneText() {
    return "No removed app left anything in " + quorv::phrase(quorv::Phrase::yourLibrary, quorv::host()) + ".";
}

std::string LeftoversModel::confirmText(std::int64_t bytes) {
    return "Move " + quorv::formatSize(bytes) + " of leftovers to the Trash?";
}

std::string LeftoversModel::resultLine(std::int64_t freed, std::size_t skipped) {
    std::string line = "Moved " + quorv::formatSize(freed) + " to the Trash";
    if (skipped > 0) line += ", " + std::to_string(skipped) + " leftovers skipped";
    return line;
}

void LeftoversModel::recount() {
    LeftoverGroup all;
    for (const auto& g : groups) {
        for (const auto& item : g.items) {
            if (item.selected) all.items.push_back(item);
        }
    }
    total = all.selectedSize();
}

std::string LeftoversModel::status() const {
    if (scanning) return lookingText;
    if (!scanned) return beforeScanText;
    if (message) return *message;
    return groups.empty() ? noneText() : "";
}

void LeftoversModel::scan() {
    if (scanning) return;
    scanning = true;
    message.reset();
    groups = quorv::Background::await([] { return Leftovers::findHere(Leftovers::installedIDs()); });
    recount();
    scanning = false;
    scanned = true;
}

LeftoversCleanResult LeftoversModel::trashSelected() {
    LeftoversCleanResult result;
    if (scanning) return result;
    const auto lock = CleanLock::take();
    if (!lock) {
        result.busy = true;
        message = CleanLock::busyText;
        return result;
    }
    std::vector<FileItem> ticked;
    for (const auto& g : groups) {
        for (const auto& item : g.items) {
            if (item.selected) ticked.push_back(item);
        }
    }
    const auto moved = quorv::Background::await([&] { return FS::trash(ticked, std::string(source)); });
    result.freed = moved.freed;
    result.moved = moved.moved.size();
    result.skippedLocations = moved.failed;
    // What moved leaves the list; an app with nothing left leaves it too.
    const std::set<std::string> failed(moved.failed.begin(), moved.failed.end());
    for (auto& g : groups) {
        std::erase_if(g.items, [&](const FileItem& item) { return item.selected && failed.count(item.location) == 0; });
    }
    std::erase_if(groups, [](const LeftoverGroup& g) { return g.items.empty(); });
    recount();
    message = resultLine(result.freed, result.skippedLocations.size());
    return result;
}

}  // namespace brimstell
