// Another program, which posts one notification in Foundation's own terms: FoundationPost NAME OBJECT

#import <Foundation/Foundation.h>

int main(int count, char **arguments) {
    if (count != 3)
        return 2;
    @autoreleasepool {
        NSDictionary *userInfo =
            [NSDictionary dictionaryWithObjectsAndKeys:@"<xml/>", @"webSocketResponse",
                          [NSData dataWithBytes:"\x89PNG" length:4], @"HeaderLogoImage", nil];
        [static_cast<NSDistributedNotificationCenter *>([NSDistributedNotificationCenter defaultCenter])
            postNotificationName:[NSString stringWithUTF8String:arguments[1]]
                          object:[NSString stringWithUTF8String:arguments[2]]
                        userInfo:userInfo
              deliverImmediately:YES];
    }
    return 0;
}
