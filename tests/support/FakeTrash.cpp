#include "support/FakeTrash.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kit/files/LinkSafe.hpp"
#include "support/posix/Files.hpp"

namespace testing_support {

FakeTrash::FakeTrash(std::string f) : folder(std::move(f)) { quorv::files::makeFolders(folder, 0700); }

std::optional<std::string> FakeTrash::moveToTrash(const std::string& path, std::string& error) {
    {
        std::lock_guard lock(mutex_);
        ++moves_;
        movedPaths_.push_back(path);
    }
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    const std::string name = quorv::files::nameOf(p);
    for (int n = 1; n < 1000; ++n) {
        const std::string candidate = folder + "/" + (n == 1 ? name : name + " " + std::to_string(n));
        const int rc = brimstell::LinkSafe::renameNoReplace(AT_FDCWD, p, AT_FDCWD, candidate);
        if (rc == 0) return candidate;
        if (rc != EEXIST) {
            error = std::string("It could not be moved (") + std::strerror(rc) + ").";
            return std::nullopt;
        }
    }
    error = "Every name in the Trash is taken.";
    return std::nullopt;
}

std::vector<quorv::TrashedItem> FakeTrash::list() {
    std::vector<quorv::TrashedItem> items;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (const dirent* e = ::readdir(d)) {
            if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
            items.push_back({folder + "/" + e->d_name, std::nullopt, std::nullopt});
        }
        ::closedir(d);
    }
    return items;
}

std::vector<std::string> FakeTrash::erase(const std::vector<std::string>&) { return {}; }

void FakeTrash::forgetRestored(const std::string& location) {
    std::lock_guard lock(mutex_);
    forgotten_.push_back(location);
}

bool FakeTrash::isInTrash(const std::string& location) { return quorv::files::parentOf(location) == folder; }

int FakeTrash::moves() {
    std::lock_guard lock(mutex_);
    return moves_;
}

std::vector<std::string> FakeTrash::movedPaths() {
    std::lock_guard lock(mutex_);
    return movedPaths_;
}

std::vector<std::string> FakeTrash::forgotten() {
    std::lock_guard lock(mutex_);
    return forgotten_;
}

}  // namespace testing_support
