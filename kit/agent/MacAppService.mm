#include "kit/agent/MacAppService.hpp"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

namespace brimstell {
namespace {

std::string describe(NSError* error) {
    const char* text = error != nil ? error.localizedDescription.UTF8String : nullptr;
    return text ? text : "The service manager refused without a reason.";
}

class MacAppService final : public quorv::ServiceRegistrar {
public:
    MacAppService(MacServiceKind kind, const std::string& plistName, std::string tooOld) : tooOld_(std::move(tooOld)) {
        if (@available(macOS 13.0, *)) {
            // Created once and kept for the life of the process (the host holds this registrar).
            NSString* name = [NSString stringWithUTF8String:plistName.c_str()];
            service_ = kind == MacServiceKind::agent ? [SMAppService agentServiceWithPlistName:name]
                                                     : [SMAppService daemonServiceWithPlistName:name];
#if !__has_feature(objc_arc)
            [service_ retain];
#endif
        }
    }

    quorv::ServiceStatus status() override {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                // SMAppServiceStatus: 0 not registered, 1 enabled, 2 requires approval, 3 not found.
                const long raw = static_cast<long>(static_cast<SMAppService*>(service_).status);
                if (raw >= 0 && raw <= 3) return static_cast<quorv::ServiceStatus>(raw);
            }
            return quorv::ServiceStatus::notFound;
        }
    }

    bool registerService(std::string& error) override { return change(true, error); }
    bool unregisterService(std::string& error) override { return change(false, error); }

private:
    bool change(bool on, std::string& error) {
        @autoreleasepool {
            if (@available(macOS 13.0, *)) {
                SMAppService* service = service_;
                NSError* failure = nil;
                const BOOL ok = on ? [service registerAndReturnError:&failure] : [service unregisterAndReturnError:&failure];
                if (ok) return true;
                error = describe(failure);
                return false;
            }
            error = tooOld_;
            return false;
        }
    }

    id service_ = nil;
    std::string tooOld_;
};

}  // namespace

std::shared_ptr<quorv::ServiceRegistrar> makeMacAppService(MacServiceKind kind, const std::string& plistName,
                                                           const std::string& tooOld) {
    return std::make_shared<MacAppService>(kind, plistName, tooOld);
}

void openLoginItemsSettings() {
    if (@available(macOS 13.0, *)) [SMAppService openSystemSettingsLoginItems];
}

}  // namespace brimstell
