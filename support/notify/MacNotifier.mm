#include "support/notify/MacNotifier.hpp"

#include <string>

#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

namespace quorv {
namespace {

// How long to wait for each answer of the centre. The first authorisation request shows the
// system's prompt; the run does not wait on the user for it.
const int64_t answerTimeoutNs = static_cast<int64_t>(5 * NSEC_PER_SEC);

bool waitFor(dispatch_semaphore_t semaphore) {
    return dispatch_semaphore_wait(semaphore, dispatch_time(DISPATCH_TIME_NOW, answerTimeoutNs)) == 0;
}

NSString* text(const std::string& s) {
    return [[NSString alloc] initWithBytes:s.data() length:s.size() encoding:NSUTF8StringEncoding] ?: @"";
}

class MacNotifier final : public Notifier {
public:
    bool deliver(const std::string& id, const std::string& title, const std::string& body) override {
        @autoreleasepool {
            // Only a process inside the app bundle may post (the agent executable is one).
            if (![[[[NSBundle mainBundle] bundleURL] pathExtension] isEqualToString:@"app"]) return false;

            UNUserNotificationCenter* center = [UNUserNotificationCenter currentNotificationCenter];

            // The blocks may run after a timeout; __block storage and the captured semaphores
            // outlive this frame.
            __block BOOL granted = NO;
            dispatch_semaphore_t authorised = dispatch_semaphore_create(0);
            [center requestAuthorizationWithOptions:(UNAuthorizationOptionAlert | UNAuthorizationOptionSound)
                                  completionHandler:^(BOOL ok, NSError* _Nullable error) {
                                      (void)error;
                                      granted = ok;
                                      dispatch_semaphore_signal(authorised);
                                  }];
            if (!waitFor(authorised) || !granted) return false;

            UNMutableNotificationContent* content = [[UNMutableNotificationContent alloc] init];
            content.title = text(title);
            content.body = text(body);
            UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:text(id)
                                                                                  content:content
                                                                                  trigger:nil];

            __block BOOL added = NO;
            dispatch_semaphore_t done = dispatch_semaphore_create(0);
            [center addNotificationRequest:request
                     withCompletionHandler:^(NSError* _Nullable error) {
                         added = error == nil;
                         dispatch_semaphore_signal(done);
                     }];
            return waitFor(done) && added;
        }
    }
};

}  // namespace

std::shared_ptr<Notifier> makeMacNotifier() { return std::make_shared<MacNotifier>(); }

}  // namespace quorv
