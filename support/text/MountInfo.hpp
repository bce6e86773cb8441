#pragma once
// The mount table as the kernel lists it (/proc/self/mountinfo): one mount per line, fields
// split on spaces, the mount point fifth with spaces and other bytes written as \ooo.

#include <string>
#include <string_view>
#include <vector>

namespace quorv {

struct MountEntry {
    std::string point;   // where it is mounted, unescaped
    std::string type;    // the file system's type ("ext4", "proc")
    std::string source;  // what is mounted ("/dev/sda1", "tmpfs"), unescaped
};

// Every well-formed line, in order; malformed lines are skipped.
std::vector<MountEntry> parseMountInfo(std::string_view text);

// The mount that holds path (the longest mount point it lies in), or nullptr.
const MountEntry* mountHolding(const std::vector<MountEntry>& mounts, std::string_view path);

}  // namespace quorv
