#include "kit/cleaning/NodeModules.hpp"

#include <fcntl.h>

#include <algorithm>

#include "kit/cleaning/FolderListing.hpp"
#include "kit/cleaning/JunkCatalogue.hpp"
#include "kit/files/FS.hpp"
#include "shared/helper/HelperFiles.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

namespace {

constexpr int kOpenFolder = quorv::LinkSafe::folderFlags;

// A folder of the home that a cloud client syncs (Dropbox, MEGA, Box…), by the names the root
// helper protects: moving a node_modules out of one would remove it on every device.
bool isSyncFolderName(const std::string& name) {
    return HelperFiles::isInSyncedFolder("/Users/account/" + name);
}

bool isNodeModules(const FolderEntry& entry) {
    return entry.isFolder() && entry.name == JunkCatalogue::nodeModulesFolder;
}

class Walk {
public:
    explicit Walk(dev_t device) : device_(device) {}

    // Looks for projects in the folder open as fd at path, depth levels below home.
    void search(int fd, const std::string& path, int depth) {
        const auto folders = FolderListing::listFolders(fd);
        if (depth > 0 && std::any_of(folders.begin(), folders.end(), isNodeModules)) {
            NodeModulesProject project;
            project.folder = path;
            if (const auto own = FolderListing::statAt(fd, ".")) project.lastChange = quorv::compat::modifiedSeconds(*own);
            // Its own node_modules comes first; nested ones follow in the order the walk meets them.
            project.modules.push_back(path + "/" + std::string(JunkCatalogue::nodeModulesFolder));
            readProject(fd, path, FolderListing::list(fd), 0, project);
            found_.push_back(std::move(project));
            return;
        }
        if (depth >= NodeModules::searchDepth) return;
        for (const auto& entry : folders) {
            if (entry.name.starts_with('.') || entry.st.st_dev != device_ || isNodeModules(entry)) continue;
            if (depth == 0 && (entry.name == "Library" || isSyncFolderName(entry.name))) continue;
            const std::string below = path + "/" + entry.name;
            if (FS::isCloudSynced(below)) continue;
            quorv::UniqueFd child(::openat(fd, entry.name.c_str(), kOpenFolder));
            if (child) search(child.get(), below, depth + 1);
        }
    }

    std::vector<NodeModulesProject> take() { return std::move(found_); }

private:
    // Adds the entries of a project folder (depth levels below the project) to its last change,
    // and collects the nested node_modules folders.
    void readProject(int fd, const std::string& path, const std::vector<FolderEntry>& entries, int depth,
                     NodeModulesProject& project) {
        for (const auto& entry : entries) {
            if (isNodeModules(entry)) {
                if (depth > 0) project.modules.push_back(path + "/" + entry.name);
                continue;
            }
            project.lastChange = std::max(project.lastChange, quorv::compat::modifiedSeconds(entry.st));
            if (!entry.isFolder() || entry.name.starts_with('.') || entry.st.st_dev != device_) continue;
            if (depth + 1 > NodeModules::projectDepth) continue;
            quorv::UniqueFd child(::openat(fd, entry.name.c_str(), kOpenFolder));
            if (!child) continue;
            readProject(child.get(), path + "/" + entry.name, FolderListing::list(child.get()), depth + 1, project);
        }
    }

    dev_t device_;
    std::vector<NodeModulesProject> found_;
};

}  // namespace

std::vector<NodeModulesProject> NodeModules::projects(const std::string& home) {
    std::string top = home;
    while (top.size() > 1 && top.back() == '/') top.pop_back();
    const auto fd = FolderListing::open(top);
    if (!fd) return {};
    const auto own = FolderListing::statAt(fd.get(), ".");
    if (!own) return {};
    Walk walk(own->st_dev);
    walk.search(fd.get(), top == "/" ? "" : top, 0);
    return walk.take();
}

}  // namespace brimstell
