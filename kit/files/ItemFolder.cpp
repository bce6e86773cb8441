#include "kit/files/ItemFolder.hpp"

#include <cerrno>

#include "kit/files/TrashTexts.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

using quorv::LinkSafe;

quorv::UniqueFd openItemFolder(const std::string& path, std::string& realFolder, std::string& error) {
    const auto real = LinkSafe::resolve(quorv::files::parentOf(path));
    if (!real) {
        error = trashText::forError(errno);
        return {};
    }
    quorv::UniqueFd fd = LinkSafe::openExact(*real);
    if (!fd) {
        error = trashText::forError(errno);  // a link on the way: ELOOP
        return {};
    }
    realFolder = *real;
    return fd;
}

}  // namespace brimstell
