#include "Tests/Contracts/FoundationLoop.h"

#include "Platform/macOS/FoundationValues.h"

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

namespace {

id objectOf(const QVariant &value) {
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return [NSNumber numberWithBool:value.toBool() ? YES : NO];
    case QMetaType::QByteArray: {
        const auto bytes = value.toByteArray();
        return [NSData dataWithBytes:bytes.constData() length:static_cast<NSUInteger>(bytes.size())];
    }
    case QMetaType::QString:
        return FoundationValues::stringOf(value.toString());
    default:
        return [NSNumber numberWithInt:value.toInt()];
    }
}

NSDictionary *dictionaryOf(const QVariantMap &map) {
    NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        [dictionary setObject:objectOf(entry.value()) forKey:FoundationValues::stringOf(entry.key())];
    return dictionary;
}

} // namespace

void postInFoundation(const Notification &notification) {
    @autoreleasepool {
        const bool hasObject = !notification.object.isEmpty();
        [static_cast<NSDistributedNotificationCenter *>([NSDistributedNotificationCenter defaultCenter])
            postNotificationName:FoundationValues::stringOf(notification.name)
                          object:hasObject ? FoundationValues::stringOf(notification.object) : nil
                        userInfo:notification.userInfo ? dictionaryOf(*notification.userInfo) : nil
              deliverImmediately:YES];
    }
}
