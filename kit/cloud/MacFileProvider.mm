// The file manager's ubiquitous-item calls: the resource values of a cloud file and the eviction
// of its local copy. Every decision on what they return is made in CloudDownloads.
// These calls take a path, as the system offers no other: a link swapped into the path at worst
// makes the provider evict another of its own items, whose content stays in the cloud.

#import <Foundation/Foundation.h>

#include "kit/cloud/FileProvider.hpp"

namespace brimstell {

namespace {

NSURL* urlOf(const CloudFile& file) {
    const std::string location = file.location();
    return [NSURL fileURLWithFileSystemRepresentation:location.c_str() isDirectory:NO relativeToURL:nil];
}

std::shared_ptr<const CloudError> errorOf(id object, bool withUnderlying) {
    if (![object isKindOfClass:[NSError class]]) return nullptr;
    NSError* error = object;
    auto out = std::make_shared<CloudError>();
    const char* domain = error.domain.UTF8String;
    out->domain = domain ? domain : "";
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
            CloudItemFacts facts;
            facts.cloudItem = [values[NSURLIsUbiquitousItemKey] boolValue] == YES;
            facts.uploaded = [values[NSURLUbiquitousItemIsUploadedKey] boolValue] == YES;
            facts.conflicts = [values[NSURLUbiquitousItemHasUnresolvedConflictsKey] boolValue] == YES;
            return facts;
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
