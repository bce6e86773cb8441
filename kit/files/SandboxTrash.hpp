#pragma once
// The Trash of a sandbox Mac: <home>/.Trash, named the way Finder names things.
//
// An item keeps its name; when that is taken, Finder's way: the time of the move goes before the
// extension ("report 14.05.31.pdf", the host calendar's wall-clock time, 24-hour), and when that
// is taken too, " 2", " 3"… after it ("report 14.05.31 2.pdf").
//
// A Mac keeps an item's original place and the date it was added in the Trash's .DS_Store, which
// Brimstell doesn't write. Instead a small ledger, ".brimstell-trash.json" in the Trash, maps each
// name (percent-encoded, so any bytes survive) to its original path, the date it was added and its
// file identity; it is rewritten whole and atomically under the lock ".brimstell-trash.lock". An
// item without a ledger entry (put there by something else, or since replaced by another file of
// the same name) lists with no original path and its status-change time, which a move sets, as
// the date it was added. Items on another disk than the home are refused.

#include <optional>
#include <string>
#include <vector>

#include "support/host/TrashBackend.hpp"

namespace brimstell {

class SandboxTrash final : public quorv::TrashBackend {
public:
    std::optional<std::string> moveToTrash(const std::string& path, std::string& error) override;
    std::optional<std::string> moveNotingPlace(const std::string& path, std::string& error, std::string& original) override;
    std::vector<quorv::TrashedItem> list() override;
    std::vector<std::string> erase(const std::vector<std::string>& locations) override;
    void forgetRestored(const std::string& location) override;
    bool isInTrash(const std::string& location) override;

    // The current host's Trash folder: <home>/.Trash.
    static std::string folder();
};

}  // namespace brimstell
