#pragma once
// The root helper's "junk" reply on Linux, found in-process (the helper's script walks a Mac's
// folders, which Linux doesn't have): one line per item, "<kind>\t<kilobytes>\t<path>", as the
// script prints them. Kinds:
//   log      logs logrotate has set aside in /var/log or one folder down (numbered, ".old" or
//            compressed); the journal's files never, whatever their names
//   core     crash reports in /var/crash and systemd's core dumps
//   package  packages apt, dnf and pacman downloaded and keep only to install them again
//   user     the entries of other accounts' ~/.cache in /home (the caller's own home left out)
// Folders are opened from the helper's root descriptor without following a link; items that are
// links, that the Linux protected-path rules would refuse, whose names hold a line feed or a tab,
// or that take no space are left out. Sizes are allocated kilobytes (rounded up, as du -sk), each
// inode once, on the item's own file system.

#include <string>

#include "shared/helper/HelperFiles.hpp"

namespace brimstell::HelperLinuxJunk {

std::string reply(const HelperFiles& files, const std::string& me);

}  // namespace brimstell::HelperLinuxJunk
