#include "kit/agent/FormerPlaces.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/host/Host.hpp"
#include "support/posix/Compat.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

namespace {

namespace files = quorv::files;
using quorv::LinkSafe;
using quorv::UniqueFd;

// Every entry of the folder from into the folder to (made when missing); the folder from goes
// when it is left empty.
std::size_t moveEntries(const std::string& from, const std::string& to) {
    UniqueFd source = LinkSafe::openExact(from);
    if (!source) return 0;
    UniqueFd target = LinkSafe::makeExact(to, 0700);
    if (!target) return 0;
    std::vector<std::string> names;
    std::vector<char> buffer(16 * 1024);
    quorv::compat::listNames(source.get(), buffer, [&](const char* name) { names.emplace_back(name); });
    std::size_t moved = 0;
    for (const auto& name : names) {
        if (LinkSafe::renameNoReplace(source.get(), name, target.get(), name) == 0) ++moved;
    }
    if (UniqueFd parent = LinkSafe::openExact(files::parentOf(from))) {
        ::unlinkat(parent.get(), files::nameOf(from).c_str(), AT_REMOVEDIR);  // only when empty
    }
    return moved;
}

std::size_t moveFile(const std::string& from, const std::string& to) {
    UniqueFd source = LinkSafe::openExact(files::parentOf(from));
    UniqueFd target = source ? LinkSafe::makeExact(files::parentOf(to), 0700) : UniqueFd();
    if (!target) return 0;
    return LinkSafe::renameNoReplace(source.get(), files::nameOf(from), target.get(), files::nameOf(to)) == 0 ? 1 : 0;
}

}  // namespace

std::size_t FormerPlaces::moveOver() {
    std::size_t moved = 0;
    for (const auto& place : quorv::host().formerPlaces()) {
        struct stat st{};
        if (place.from == place.to || ::lstat(place.from.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) moved += moveEntries(place.from, place.to);
        if (S_ISREG(st.st_mode)) moved += moveFile(place.from, place.to);
        // A link, or anything else, stays: it isn't ours to follow.
    }
    return moved;
}

}  // namespace brimstell
