#pragma once
// A Trash for tests: one folder, items renamed into it under their own name or "name 2",
// "name 3"…, with a count of moves and a record of what was forgotten after a restore.

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/host/TrashBackend.hpp"

namespace testing_support {

class FakeTrash : public quorv::TrashBackend {
public:
    explicit FakeTrash(std::string folder);

    std::optional<std::string> moveToTrash(const std::string& path, std::string& error) override;
    std::vector<quorv::TrashedItem> list() override;
    std::vector<std::string> erase(const std::vector<std::string>& locations) override;
    void forgetRestored(const std::string& location) override;
    bool isInTrash(const std::string& location) override;

    const std::string folder;
    int moves();
    std::vector<std::string> movedPaths();
    std::vector<std::string> forgotten();

private:
    std::mutex mutex_;
    int moves_ = 0;
    std::vector<std::string> movedPaths_;
    std::vector<std::string> forgotten_;
};

}  // namespace testing_support
