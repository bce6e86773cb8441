#pragma once
// Finding the node_modules folders of projects in a home folder, with when each project last
// changed, for the list of old node_modules.
//
// The walk, through descriptors and never following a link:
// - it searches the home's folders down to searchDepth levels, on the home's own file system,
//   leaving out the top-level Library folder, hidden folders (".git", ".Trash", ".npm"…) and
//   cloud-synced folders;
// - a folder holding a "node_modules" folder is a project, package.json or not: an install leaves
//   node_modules whatever the project holds. A node_modules directly in the home folder makes no
//   project, since the home's last change says nothing about it, and no node_modules is searched;
// - a project is walked down to projectDepth levels below it for its last change: the newest
//   modification time of the project folder and of everything in it outside node_modules. Hidden
//   entries count with their own time but are not entered, so a commit (which touches .git)
//   counts without reading the whole repository;
// - node_modules folders further down in a project (workspaces of a monorepo) belong to the
//   outermost project and share its last change; the search doesn't look for projects below one.

#include <string>
#include <vector>

namespace brimstell {

struct NodeModulesProject {
    std::string folder;                // the project's folder, which holds node_modules
    std::vector<std::string> modules;  // its node_modules folders: its own first, then nested ones
    double lastChange = 0;             // seconds since 1970
};

struct NodeModules {
    static constexpr int searchDepth = 10;   // folder levels below home searched for projects
    static constexpr int projectDepth = 10;  // folder levels below a project read for its last change

    // The projects below home, in byte order of their paths. Unreadable folders give nothing.
    static std::vector<NodeModulesProject> projects(const std::string& home);
};

}  // namespace brimstell
