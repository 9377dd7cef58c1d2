#include "Tests/Contracts/FoundationLoop.h"

#import <Foundation/Foundation.h>

void turnFoundationLoop() {
    @autoreleasepool {
        [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                                 beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.002]];
    }
}

void suspendDelivery(bool suspended) {
    @autoreleasepool {
        [static_cast<NSDistributedNotificationCenter *>([NSDistributedNotificationCenter defaultCenter])
            setSuspended:suspended ? YES : NO];
    }
}
