// The file manager's ubiquitous-item calls: the resource values of a cloud file and the eviction
// of its local copy. Every decision on what they return is made in CloudDownloads.

#import <Foundation/Foundation.h>

#include "kit/cloud/FileProvider.hpp"

namespace brimstell {

namespace {

NSURL* urlOf(const CloudFile& file) {
    const std::string location = file.location();
    return [NSURL fileURLWithFileSystemRepresentation:location.c_str() isDirectory:NO relativeToURL:nil];
}

std::shared_ptr<const CloudError> errorOf(NSError* error, bool withUnderlying) {
    if (!error) return nullptr;
    auto out = std::make_shared<CloudError>();
    out->domain = error.domain.UTF8String ?: "";
    out->code = static_cast<long>(error.code);
    if (withUnderlying) out->underlying = errorOf(error.userInfo[NSUnderlyingErrorKey], false);
    return out;
}

class MacFileProvider : public FileProvider {
public:
    std::optional<CloudItemFacts> facts(const CloudFile& file) override {
        @autoreleasepool {
            NSArray* keys = @[ NSURLIsUbiquitousItemKey, NSURLUbiquitousItemIsUploadedKey,
                               NSURLUbiquitousItemHasUnresolvedConflictsKey ];
            NSDictionary* values = [urlOf(file) resourceValuesForKeys:keys error:nil];
            if (!values) return std::nullopt;
            return CloudItemFacts{[values[NSURLIsUbiquitousItemKey] boolValue],
                                  [values[NSURLUbiquitousItemIsUploadedKey] boolValue],
                                  [values[NSURLUbiquitousItemHasUnresolvedConflictsKey] boolValue]};
        }
    }

    std::optional<CloudError> evict(const CloudFile& file) override {
        @autoreleasepool {
            NSError* error = nil;
            if ([NSFileManager.defaultManager evictUbiquitousItemAtURL:urlOf(file) error:&error]) return std::nullopt;
            const auto out = errorOf(error, true);
            return out ? *out : CloudError{"NSCocoaErrorDomain", 256, nullptr};
        }
    }
};

}  // namespace

std::unique_ptr<FileProvider> platformFileProvider() { return std::make_unique<MacFileProvider>(); }

}  // namespace brimstell
