#include "kit/files/FSMac.hpp"

#import <Foundation/Foundation.h>

namespace brimstell::mac {

bool isUbiquitousItem(const std::string& path) {
    @autoreleasepool {
        NSString* p = [[NSString alloc] initWithBytes:path.data() length:path.size() encoding:NSUTF8StringEncoding];
        if (p == nil) return false;
        NSURL* url = [NSURL fileURLWithPath:p];
        NSNumber* value = nil;
        if (![url getResourceValue:&value forKey:NSURLIsUbiquitousItemKey error:nil]) return false;
        return value.boolValue;
    }
}

}  // namespace brimstell::mac
