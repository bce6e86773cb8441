#include "support/FileTree.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "support/posix/LinkSafe.hpp"

namespace testing_support {

namespace {

std::vector<std::string> namesIn(int fd) {
    std::vector<std::string> names;
    if (DIR* d = ::fdopendir(::dup(fd))) {
        while (const dirent* e = ::readdir(d)) {
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
        }
        ::closedir(d);
    }
    return names;
}

int openFolder(int dir, const std::string& name) {
    return ::openat(dir, name.c_str(), quorv::LinkSafe::folderFlags);
}

}  // namespace

// Without recursion: a chain of folders thousands deep needs neither stack nor more than a few
// descriptors.
std::vector<TreeNode> snapshotTree(const std::string& path) {
    std::vector<TreeNode> out;
    std::vector<std::pair<int, std::string>> pending;  // folders still to read, with their prefix
    auto add = [&](int dir, const std::string& name, const std::string& relative) {
        struct stat st{};
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
        TreeNode node{relative, 'f', "", st.st_mode & 07777u};
        if (S_ISDIR(st.st_mode)) {
            node.type = 'd';
            if (const int child = openFolder(dir, name); child >= 0) pending.emplace_back(child, relative.empty() ? "" : relative + "/");
        } else if (S_ISLNK(st.st_mode)) {
            node.type = 'l';
            node.content.resize(4096);
            const ssize_t n = ::readlinkat(dir, name.c_str(), node.content.data(), node.content.size());
            node.content.resize(n > 0 ? static_cast<size_t>(n) : 0);
        } else if (const int fd = ::openat(dir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC); fd >= 0) {
            char buf[65536];
            for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) node.content.append(buf, static_cast<size_t>(n));
            ::close(fd);
        } else {
            node.content = "<unreadable>";
        }
        out.push_back(std::move(node));
    };
    add(AT_FDCWD, path, "");
    while (!pending.empty()) {
        const auto [fd, prefix] = std::move(pending.back());
        pending.pop_back();
        for (const auto& name : namesIn(fd)) add(fd, name, prefix + name);
        ::close(fd);
    }
    std::sort(out.begin(), out.end(), [](const TreeNode& a, const TreeNode& b) { return a.path < b.path; });
    return out;
}

bool makeChain(const std::string& folder, const std::string& name, int depth) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; fd >= 0 && i < depth; ++i) {
        const int next = ::mkdirat(fd, name.c_str(), 0755) == 0 ? openFolder(fd, name) : -1;
        ::close(fd);
        fd = next;
    }
    if (fd < 0) return false;
    const int file = ::openat(fd, "bottom", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    ::close(fd);
    const bool ok = file >= 0 && ::write(file, "deep\n", 5) == 5;
    if (file >= 0) ::close(file);
    return ok;
}

// Empties the top level by level: files go, the folders inside each child folder are hoisted into
// the top under fresh names, and the emptied child goes. Two descriptors and linear time for a
// chain of any depth (rm -rf takes seconds on one 2,000 levels deep).
void removeTree(const std::string& path) {
    const int top = openFolder(AT_FDCWD, path);
    if (top < 0) {
        ::unlink(path.c_str());
        return;
    }
    unsigned long hoisted = 0;
    for (bool progress = true; progress;) {
        progress = false;
        for (const auto& name : namesIn(top)) {
            const int child = openFolder(top, name);
            if (child < 0) {
                progress |= ::unlinkat(top, name.c_str(), 0) == 0;
                continue;
            }
            ::fchmod(child, 0700);
            for (const auto& inner : namesIn(child)) {
                if (::unlinkat(child, inner.c_str(), 0) != 0) {
                    ::renameat(child, inner.c_str(), top, (".hoisted-" + std::to_string(++hoisted)).c_str());
                }
            }
            ::close(child);
            progress |= ::unlinkat(top, name.c_str(), AT_REMOVEDIR) == 0;
        }
    }
    ::close(top);
    ::rmdir(path.c_str());
}

}  // namespace testing_support
