// The channel to the root helper on a Mac: one cached NSXPCConnection to its privileged Mach
// service, with the code-signing requirement of our own team when we are signed.

#include "kit/files/MacHelper.hpp"

#import <Foundation/Foundation.h>

#include <future>
#include <mutex>
#include <string>

#include "kit/files/Admin.hpp"
#include "shared/helper/HelperInfo.hpp"
#include "shared/helper/HelperProtocol.hpp"

namespace brimstell {
namespace {

NSString* text(const std::string& s) {
    return [[NSString alloc] initWithBytes:s.data() length:s.size() encoding:NSUTF8StringEncoding];
}

NSString* text(std::string_view s) { return text(std::string(s)); }

class XPCHelperTransport final : public quorv::HelperTransport {
public:
    std::optional<std::string> call(const std::string& op, const std::string& arg, const std::vector<std::string>& list,
                                    std::optional<double> timeout) override {
        @autoreleasepool {
            NSString* opText = text(op);
            NSString* argText = text(arg);
            NSMutableArray<NSString*>* listText = [NSMutableArray arrayWithCapacity:list.size()];
            for (const auto& entry : list) {
                NSString* entryText = text(entry);
                if (entryText == nil) return std::nullopt;  // not UTF-8: can't be sent as a string
                [listText addObject:entryText];
            }
            if (opText == nil || argText == nil) return std::nullopt;

            auto promise = std::make_shared<std::promise<std::optional<std::string>>>();
            auto reply = promise->get_future();
            auto once = std::make_shared<Admin::Once>(
                [promise](std::optional<std::string> value) { promise->set_value(std::move(value)); });
            void (^answer)(NSString*) = ^(NSString* r) {
                const char* bytes = r != nil ? r.UTF8String : nullptr;
                once->resume(bytes != nullptr ? std::optional<std::string>(bytes) : std::nullopt);
            };

            id proxy = [connection() remoteObjectProxyWithErrorHandler:^(NSError*) { once->resume(std::nullopt); }];
            // The proxy speaks the connection's remote interface, HelperProtocol; none means no helper.
            id<HelperProtocol> helper = proxy;
            if (helper == nil) {
                once->resume(std::nullopt);
            } else if (op == "version") {
                [helper versionWithReply:answer];
            } else {
                [helper run:opText arg:argText list:listText withReply:answer];
            }
            if (timeout) {
                const double seconds = *timeout < 0 ? 0 : *timeout;
                dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC)),
                               dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{ once->resume(std::nullopt); });
            }
            return reply.get();
        }
    }

    void invalidate() override {
        NSXPCConnection* old = nil;
        {
            std::lock_guard lock(mutex_);
            old = connection_;
            connection_ = nil;
        }
        [old invalidate];
    }

private:
    NSXPCConnection* connection() {
        std::lock_guard lock(mutex_);
        if (connection_ != nil) return connection_;
        NSXPCConnection* c = [[NSXPCConnection alloc] initWithMachServiceName:text(HelperInfo::label)
                                                                      options:NSXPCConnectionPrivileged];
        c.remoteObjectInterface = [NSXPCInterface interfaceWithProtocol:@protocol(HelperProtocol)];
        // Only a helper signed by our own team under its label is accepted.
        if (const auto team = HelperInfo::ownTeamID()) {
            if (@available(macOS 13.0, *)) [c setCodeSigningRequirement:text(HelperInfo::clientRequirement(*team))];
        }
        __weak NSXPCConnection* weak = c;  // the connection keeps its handler: no cycle back to it
        c.invalidationHandler = ^{
            {
                std::lock_guard lock(mutex_);
                if (connection_ == weak) connection_ = nil;
            }
            invalidated();
        };
        [c resume];
        connection_ = c;
        return c;
    }

    std::mutex mutex_;
    NSXPCConnection* connection_ = nil;
};

}  // namespace

std::shared_ptr<quorv::HelperTransport> makeXPCHelperTransport() { return std::make_shared<XPCHelperTransport>(); }

}  // namespace brimstell
