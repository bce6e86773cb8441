#include "kit/agent/MacAgentService.hpp"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

#include <string>

namespace brimstell {
namespace {

// Created once, on first use, and kept for the life of the process.
API_AVAILABLE(macos(13.0)) SMAppService* agentService() {
    static SMAppService* service = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
        service = [SMAppService agentServiceWithPlistName:@"com.quorv.brimstell.agent.plist"];
#if !__has_feature(objc_arc)
        [service retain];
#endif
    });
    return service;
}

std::string describe(NSError* error) {
    if (error == nil) return "The service manager refused without a reason.";
    const char* text = error.localizedDescription.UTF8String;
    return text ? text : "The service manager refused without a reason.";
}

class MacAgentService final : public quorv::ServiceRegistrar {
public:
    quorv::ServiceStatus status() override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                // SMAppServiceStatus: 0 not registered, 1 enabled, 2 requires approval, 3 not found.
                const long raw = static_cast<long>(agentService().status);
                if (raw >= 0 && raw <= 3) return static_cast<quorv::ServiceStatus>(raw);
            }
            return quorv::ServiceStatus::notFound;
        }
    }

    bool registerService(std::string& error) override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                NSError* failure = nil;
                if ([agentService() registerAndReturnError:&failure]) return true;
                error = describe(failure);
                return false;
            }
            error = "Background checks need macOS 13 or later.";
            return false;
        }
    }

    bool unregisterService(std::string& error) override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                NSError* failure = nil;
                if ([agentService() unregisterAndReturnError:&failure]) return true;
                error = describe(failure);
                return false;
            }
            error = "Background checks need macOS 13 or later.";
            return false;
        }
    }
};

}  // namespace

std::shared_ptr<quorv::ServiceRegistrar> makeMacAgentService() { return std::make_shared<MacAgentService>(); }

}  // namespace brimstell
