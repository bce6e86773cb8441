#pragma once
// Whole trees as tests compare them, read through descriptors so that trees deeper than
// PATH_MAX work too.

#include <string>
#include <vector>

namespace testing_support {

struct TreeNode {
    std::string path;     // relative to the top, "/"-joined; "" is the top itself
    char type = '?';      // 'd' folder, 'f' file, 'l' symbolic link
    std::string content;  // a file's bytes, a link's target
    unsigned mode = 0;    // permission bits

    bool operator==(const TreeNode&) const = default;
};

// The tree at path, sorted by path; empty when nothing is there.
std::vector<TreeNode> snapshotTree(const std::string& path);
// Makes `depth` nested folders named `name` inside folder, with a file "bottom" at the end.
bool makeChain(const std::string& folder, const std::string& name, int depth);
// Removes a tree of any depth.
void removeTree(const std::string& path);

}  // namespace testing_support
