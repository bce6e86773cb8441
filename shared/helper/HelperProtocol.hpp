#pragma once
// The helper's XPC interface on a Mac: what the helper publishes on its Mach service and what the
// app and the agent call. Objective-C only.

#ifdef __OBJC__
#import <Foundation/Foundation.h>

@protocol HelperProtocol
// Runs op (one of HelperScript::operations) with arg and list; replies with its output.
- (void)run:(NSString*)op arg:(NSString*)arg list:(NSArray<NSString*>*)list withReply:(void (^)(NSString*))reply;
// Replies with HelperInfo::version.
- (void)versionWithReply:(void (^)(NSString*))reply;
@end
#endif
