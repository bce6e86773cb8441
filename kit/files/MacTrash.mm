#include "kit/files/MacTrash.hpp"

#include <sys/stat.h>

#include <string>
#include <vector>

#import <Foundation/Foundation.h>

#include "kit/files/MacTrashRules.hpp"
#include "support/host/Host.hpp"
#include "support/posix/Files.hpp"

namespace brimstell {
namespace {

NSURL* fileURL(const std::string& path) {
    NSString* s = [[NSFileManager defaultManager] stringWithFileSystemRepresentation:path.c_str() length:path.size()];
    return s ? [NSURL fileURLWithPath:s] : nil;
}

std::string pathOf(NSURL* url) {
    const char* p = url.fileSystemRepresentation;
    return p ? std::string(p) : std::string();
}

const char* sentence(NSError* error) {
    using macTrash::ErrorDomain;
    if (!error) return macTrash::sentence(ErrorDomain::none, 0);
    ErrorDomain domain = ErrorDomain::other;
    if ([error.domain isEqualToString:NSPOSIXErrorDomain]) domain = ErrorDomain::posix;
    if ([error.domain isEqualToString:NSCocoaErrorDomain]) domain = ErrorDomain::cocoa;
    return macTrash::sentence(domain, static_cast<long>(error.code));
}

static_assert(macTrash::cocoa::noSuchFile == NSFileNoSuchFileError);
static_assert(macTrash::cocoa::readNoSuchFile == NSFileReadNoSuchFileError);
static_assert(macTrash::cocoa::readNoPermission == NSFileReadNoPermissionError);
static_assert(macTrash::cocoa::writeNoPermission == NSFileWriteNoPermissionError);
static_assert(macTrash::cocoa::featureUnsupported == NSFeatureUnsupportedError);

class MacTrash final : public quorv::TrashBackend {
public:
    std::optional<std::string> moveToTrash(const std::string& path, std::string& error) override {
        @autoreleasepool {
            error.clear();
            if (const char* refused = macTrash::refusal(path)) {
                error = refused;
                return std::nullopt;
            }
            NSURL* url = fileURL(quorv::files::trimTrailingSlashes(path));
            NSURL* resulting = nil;
            NSError* failure = nil;
            if (url && [[NSFileManager defaultManager] trashItemAtURL:url resultingItemURL:&resulting error:&failure]) {
                // Empty when the system did not say where it went.
                return resulting ? pathOf(resulting) : std::string();
            }
            error = sentence(failure);
            return std::nullopt;
        }
    }

    std::vector<quorv::TrashedItem> list() override {
        std::vector<quorv::TrashedItem> out;
        @autoreleasepool {
            NSFileManager* fm = [NSFileManager defaultManager];
            NSURL* trash = [fm URLForDirectory:NSTrashDirectory
                                      inDomain:NSUserDomainMask
                             appropriateForURL:nil
                                        create:NO
                                         error:nil];
            if (!trash) return out;
            NSArray<NSURL*>* items = [fm contentsOfDirectoryAtURL:trash
                                       includingPropertiesForKeys:@[ NSURLAddedToDirectoryDateKey ]
                                                          options:0
                                                            error:nil];
            for (NSURL* url in items) {
                NSString* name = url.lastPathComponent;
                const char* plainName = name.fileSystemRepresentation;
                if (!plainName || macTrash::isBookkeeping(plainName)) continue;
                quorv::TrashedItem item;
                item.location = pathOf(url);
                id added = nil;
                if ([url getResourceValue:&added forKey:NSURLAddedToDirectoryDateKey error:nil] &&
                    [added isKindOfClass:[NSDate class]]) {
                    item.dateAdded = ((NSDate*)added).timeIntervalSince1970;
                }
                out.push_back(std::move(item));
            }
        }
        return out;
    }

    std::vector<std::string> erase(const std::vector<std::string>& locations) override {
        std::vector<std::string> gone;
        @autoreleasepool {
            for (const auto& location : locations) {
                if (!isInTrash(location)) continue;
                NSURL* url = fileURL(location);
                if (url) [[NSFileManager defaultManager] removeItemAtURL:url error:nil];
                struct stat st{};
                if (::lstat(location.c_str(), &st) != 0) gone.push_back(location);
            }
        }
        return gone;
    }

    // Finder keeps its own records of what is in the Trash; there is nothing of ours to drop.
    void forgetRestored(const std::string&) override {}

    bool isInTrash(const std::string& location) override {
        return macTrash::isInTrash(location, quorv::host().home, quorv::host().uid);
    }
};

}  // namespace

std::shared_ptr<quorv::TrashBackend> makeMacTrash() { return std::make_shared<MacTrash>(); }

}  // namespace brimstell
