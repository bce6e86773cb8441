#include "support/FileTree.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>


namespace testing_support {

namespace {

std::string readAt(int dir, const char* name) {
    const int fd = ::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return "<unreadable>";
    std::string out;
    char buf[65536];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(fd);
    return out;
}

std::string linkTarget(int dir, const char* name) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(dir, name, target.data(), target.size());
    target.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return target;
}

// Walks the folder open at fd (and closes it) without recursion: a chain of folders thousands
// deep needs neither stack nor more than a few descriptors.
void walk(int topFd, std::vector<TreeNode>& out) {
    std::vector<std::pair<int, std::string>> pending{{topFd, ""}};
    while (!pending.empty()) {
        auto [fd, prefix] = std::move(pending.back());
        pending.pop_back();
        std::vector<std::string> names;
        if (DIR* d = ::fdopendir(::dup(fd))) {
            while (const dirent* e = ::readdir(d)) {
                if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
            }
            ::closedir(d);
        }
        for (const auto& name : names) {
            struct stat st{};
            if (::fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
            TreeNode node;
            node.path = prefix + name;
            node.mode = st.st_mode & 07777;
            if (S_ISDIR(st.st_mode)) {
                node.type = 'd';
                const int child = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (child >= 0) pending.emplace_back(child, prefix + name + "/");
            } else if (S_ISLNK(st.st_mode)) {
                node.type = 'l';
                node.content = linkTarget(fd, name.c_str());
            } else {
                node.type = 'f';
                node.content = readAt(fd, name.c_str());
            }
            out.push_back(std::move(node));
        }
        ::close(fd);
    }
}

}  // namespace

std::vector<TreeNode> snapshotTree(const std::string& path) {
    std::vector<TreeNode> out;
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return out;
    TreeNode top;
    top.mode = st.st_mode & 07777;
    if (S_ISDIR(st.st_mode)) {
        top.type = 'd';
        out.push_back(top);
        const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd >= 0) walk(fd, out);
    } else if (S_ISLNK(st.st_mode)) {
        top.type = 'l';
        top.content = linkTarget(AT_FDCWD, path.c_str());
        out.push_back(top);
    } else {
        top.type = 'f';
        top.content = readAt(AT_FDCWD, path.c_str());
        out.push_back(top);
    }
    std::sort(out.begin(), out.end(), [](const TreeNode& a, const TreeNode& b) { return a.path < b.path; });
    return out;
}

bool makeChain(const std::string& folder, const std::string& name, int depth) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    for (int i = 0; i < depth; ++i) {
        if (::mkdirat(fd, name.c_str(), 0755) != 0) {
            ::close(fd);
            return false;
        }
        const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        ::close(fd);
        if (next < 0) return false;
        fd = next;
    }
    const int file = ::openat(fd, "bottom", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    ::close(fd);
    if (file < 0) return false;
    const bool ok = ::write(file, "deep\n", 5) == 5;
    ::close(file);
    return ok;
}

// Empties the top folder level by level: files go, the folders inside each child folder are
// hoisted into the top under fresh names, and the emptied child goes. Two descriptors and linear
// time for a chain of any depth (rm -rf takes seconds on one 2,000 levels deep).
void removeTree(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return;
    if (!S_ISDIR(st.st_mode)) {
        ::unlink(path.c_str());
        return;
    }
    const int top = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (top < 0) return;
    auto list = [](int fd) {
        std::vector<std::pair<std::string, bool>> entries;  // name, is a folder
        if (DIR* d = ::fdopendir(::dup(fd))) {
            while (const dirent* e = ::readdir(d)) {
                if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
                struct stat est{};
                const bool folder = ::fstatat(fd, e->d_name, &est, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(est.st_mode);
                entries.emplace_back(e->d_name, folder);
            }
            ::closedir(d);
        }
        return entries;
    };
    unsigned long hoisted = 0;
    for (bool progress = true; progress;) {
        progress = false;
        for (const auto& [name, folder] : list(top)) {
            if (!folder) {
                progress |= ::unlinkat(top, name.c_str(), 0) == 0;
                continue;
            }
            const int child = ::openat(top, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child < 0) continue;
            ::fchmod(child, 0700);
            for (const auto& [inner, innerFolder] : list(child)) {
                if (innerFolder) {
                    ::renameat(child, inner.c_str(), top, (".hoisted-" + std::to_string(++hoisted)).c_str());
                } else {
                    ::unlinkat(child, inner.c_str(), 0);
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
