#pragma once
// What the demo Mac's update sources answer, for a feed server that stands in for their hosts: the
// editor's feed has an update and a newer release that needs a newer system than the demo's
// 14.2.1, Spotify's newest release is on a beta channel (and its stable one is installed), the App
// Store has a newer Notebook and the installed Disk Inspector.

#include <string>
#include <utility>
#include <vector>

namespace brimstell {

struct DemoFeeds {
    // Each request path (query included) with its body, for the apps of the demo Mac.
    static std::vector<std::pair<std::string, std::string>> answers();
    // The host names the server's certificate must hold to stand in for those sources.
    static std::vector<std::string> hostNames();
};

}  // namespace brimstell
