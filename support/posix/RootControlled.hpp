#pragma once
// Whether only root can change what lies at a path: the question to ask before root runs a
// program, or trusts one that asks it for something.

#include <sys/stat.h>

#include <optional>
#include <string_view>

namespace quorv {

// The status of the item at path when the item and every folder on the way to it, from "/", is
// owned by root, and none is writable by others (a folder with the sticky bit, like /tmp, is
// allowed: nobody but root can then move the root-owned entry below it) nor by a group other
// than root's. nullopt otherwise, and for a symbolic link anywhere on the way, a relative path,
// an empty, "." or ".." component. The item itself may be of any type; callers check it.
std::optional<struct stat> rootControlled(std::string_view path);

}  // namespace quorv
