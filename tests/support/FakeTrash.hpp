#pragma once
// A Trash for tests: one folder, items renamed into it under their own name or "name 2",
// "name 3"…, counting moves and recording what was forgotten after a restore.

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "support/posix/LinkSafe.hpp"
#include "support/host/TrashBackend.hpp"
#include "support/posix/Files.hpp"

namespace testing_support {

class FakeTrash : public quorv::TrashBackend {
    template <class F> auto locked(F f) {
        std::lock_guard lock(mutex_);
        return f();
    }

public:
    explicit FakeTrash(std::string f) : folder(std::move(f)) { quorv::files::makeFolders(folder, 0700); }

    std::optional<std::string> moveToTrash(const std::string& path, std::string& error) override {
        locked([&] { ++moves_; });
        std::string p = path;
        while (p.size() > 1 && p.back() == '/') p.pop_back();
        const std::string name = quorv::files::nameOf(p);
        for (int n = 1; n < 1000; ++n) {
            const std::string candidate = folder + "/" + (n == 1 ? name : name + " " + std::to_string(n));
            const int rc = quorv::LinkSafe::renameNoReplace(AT_FDCWD, p, AT_FDCWD, candidate);
            if (rc == 0) return candidate;
            if (rc != EEXIST) return error = std::string("It could not be moved (") + std::strerror(rc) + ").", std::nullopt;
        }
        return error = "Every name in the Trash is taken.", std::nullopt;
    }
    std::vector<quorv::TrashedItem> list() override {
        std::vector<quorv::TrashedItem> items;
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(folder, ec)) items.push_back({e.path().string(), {}, {}});
        return items;
    }
    std::vector<std::string> erase(const std::vector<std::string>&) override { return {}; }
    void forgetRestored(const std::string& location) override { locked([&] { forgotten_.push_back(location); }); }
    bool isInTrash(const std::string& location) override { return quorv::files::parentOf(location) == folder; }

    const std::string folder;
    int moves() { return locked([&] { return moves_; }); }
    std::vector<std::string> forgotten() { return locked([&] { return forgotten_; }); }

private:
    std::mutex mutex_;
    int moves_ = 0;
    std::vector<std::string> forgotten_;
};

}  // namespace testing_support
