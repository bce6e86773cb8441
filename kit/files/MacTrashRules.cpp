#include "kit/files/MacTrashRules.hpp"

#include "kit/files/TrashTexts.hpp"
#include "support/posix/Files.hpp"

namespace brimstell::macTrash {

namespace files = quorv::files;

const char* sentence(ErrorDomain domain, long code) {
    switch (domain) {
        case ErrorDomain::posix: return trashText::forError(static_cast<int>(code));
        case ErrorDomain::cocoa:
            switch (code) {
                case cocoa::noSuchFile:
                case cocoa::readNoSuchFile: return trashText::gone;
                case cocoa::writeNoPermission:
                case cocoa::readNoPermission: return trashText::noPermission;
                case cocoa::featureUnsupported: return trashText::otherDisk;
                default: return trashText::notMoved;
            }
        case ErrorDomain::none:
        case ErrorDomain::other: break;
    }
    return trashText::notMoved;
}

const char* refusal(const std::string& path) {
    const std::string trimmed = files::trimTrailingSlashes(path);
    return trashText::movablePath(trimmed, files::nameOf(trimmed)) ? nullptr : trashText::notMoved;
}

bool isInTrash(const std::string& location, const std::string& home, uid_t uid) {
    const std::string parent = files::parentOf(files::trimTrailingSlashes(location));
    if (parent == home + "/.Trash") return true;
    return files::nameOf(parent) == std::to_string(uid) && files::nameOf(files::parentOf(parent)) == ".Trashes";
}

bool isBookkeeping(std::string_view name) { return name == ".DS_Store" || name == ".localized"; }

}  // namespace brimstell::macTrash
