// The root helper's registration on a Mac: the ServiceManagement daemon service for the
// LaunchDaemon property list "com.quorv.brimstell.helper.plist" inside the app bundle.

#include "kit/files/MacHelper.hpp"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

#include <string>

#include "shared/helper/HelperInfo.hpp"

namespace brimstell {
namespace {

API_AVAILABLE(macos(13.0)) SMAppService* helperService() {
    static SMAppService* service = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
        const std::string name(HelperInfo::plistName);
        service = [SMAppService daemonServiceWithPlistName:[NSString stringWithUTF8String:name.c_str()]];
    });
    return service;
}

std::string describe(NSError* error) {
    if (error == nil) return "The service manager refused without a reason.";
    const char* text = error.localizedDescription.UTF8String;
    return text ? text : "The service manager refused without a reason.";
}

class MacHelperService final : public quorv::ServiceRegistrar {
public:
    quorv::ServiceStatus status() override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                // SMAppServiceStatus: 0 not registered, 1 enabled, 2 requires approval, 3 not found.
                const long raw = static_cast<long>(helperService().status);
                if (raw >= 0 && raw <= 3) return static_cast<quorv::ServiceStatus>(raw);
            }
            return quorv::ServiceStatus::notFound;
        }
    }

    bool registerService(std::string& error) override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                NSError* failure = nil;
                if ([helperService() registerAndReturnError:&failure]) return true;
                error = describe(failure);
                return false;
            }
            error = "The helper needs macOS 13 or later.";
            return false;
        }
    }

    bool unregisterService(std::string& error) override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                NSError* failure = nil;
                if ([helperService() unregisterAndReturnError:&failure]) return true;
                error = describe(failure);
                return false;
            }
            error = "The helper needs macOS 13 or later.";
            return false;
        }
    }
};

}  // namespace

std::shared_ptr<quorv::ServiceRegistrar> makeMacHelperService() { return std::make_shared<MacHelperService>(); }

void openLoginItemsSettings() {
    if (@available(macOS 13.0, *)) [SMAppService openSystemSettingsLoginItems];
}

}  // namespace brimstell
