#include "kit/cloud/RecordedFileProvider.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "kit/cloud/FileProvider.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"
#include "support/posix/LinkSafe.hpp"

namespace brimstell {

namespace {

// The errors the file manager gives: a refusal by the provider comes wrapped in a Cocoa error,
// with the provider's own error as the underlying one.
CloudError keptOfflineError() {
    auto provider = std::make_shared<CloudError>(CloudError{"NSFileProviderErrorDomain", -2006, nullptr});
    return CloudError{"NSCocoaErrorDomain", 256, std::move(provider)};
}
CloudError noSuchFile() { return CloudError{"NSCocoaErrorDomain", 4, nullptr}; }
CloudError cannotWrite() { return CloudError{"NSCocoaErrorDomain", 513, nullptr}; }

class RecordedFileProvider : public FileProvider {
public:
    explicit RecordedFileProvider(const std::string& text) {
        std::size_t start = 0;
        while (start < text.size()) {
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            const std::string line = text.substr(start, end - start);
            start = end + 1;
            const auto tab = line.find('\t');
            if (tab != std::string::npos && tab + 1 < line.size()) states_[line.substr(tab + 1)] = line.substr(0, tab);
        }
    }

    std::optional<CloudItemFacts> facts(const CloudFile& file) override {
        struct stat st {};
        if (::lstat(file.location().c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
        const std::string state = stateOf(file);
        return CloudItemFacts{true, state != recordedState::notUploaded, state == recordedState::conflict};
    }

    std::optional<CloudError> evict(const CloudFile& file) override {
        const std::string state = stateOf(file);
        if (state == recordedState::pinned) return keptOfflineError();
        if (state == recordedState::failing) return cannotWrite();
        return release(file);
    }

private:
    std::string stateOf(const CloudFile& file) const {
        const std::string location = file.location();
        const auto it = states_.find(quorv::host().systemPath(location).value_or(location));
        return it == states_.end() ? std::string() : it->second;
    }

    // Same name, same length, nothing allocated; reached from the cloud folder without following a
    // link, so a link swapped in for a folder or the file is refused.
    static std::optional<CloudError> release(const CloudFile& file) {
        const quorv::UniqueFd root = quorv::LinkSafe::openFolder(file.root, false);
        const auto slash = file.relative.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : file.relative.substr(0, slash);
        const std::string name = slash == std::string::npos ? file.relative : file.relative.substr(slash + 1);
        const quorv::UniqueFd parent = root ? quorv::LinkSafe::openBelow(root.get(), folder) : quorv::UniqueFd();
        if (!parent) return noSuchFile();
        const quorv::UniqueFd fd(::openat(parent.get(), name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat st {};
        if (!fd || ::fstat(fd.get(), &st) != 0) return noSuchFile();
        if (!S_ISREG(st.st_mode)) return cannotWrite();
        if (::ftruncate(fd.get(), 0) != 0 || ::ftruncate(fd.get(), st.st_size) != 0) return cannotWrite();
        return std::nullopt;
    }

    std::map<std::string, std::string> states_;  // system path → state
};

}  // namespace

std::unique_ptr<FileProvider> recordedFileProvider(const std::string& stateText) {
    return std::make_unique<RecordedFileProvider>(stateText);
}

}  // namespace brimstell
