#include "kit/updates/SystemVersionText.hpp"

#import <Foundation/Foundation.h>

namespace brimstell {

std::string macSystemVersionText() {
    @autoreleasepool {
        NSString* text = NSProcessInfo.processInfo.operatingSystemVersionString;
        return text ? std::string(text.UTF8String) : std::string();
    }
}

}  // namespace brimstell
