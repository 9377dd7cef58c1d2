#include "Platform/macOS/MacNotificationCenter.h"

#include "Contract/Bus.h"
#include "Platform/RunLoop.h"
#include "Platform/macOS/FoundationValues.h"

#include <utility>

using FoundationValues::stringOf;
using FoundationValues::textOf;

/// What the system's centre calls. The centre may hold it a little longer than its observation lasts; it does
/// nothing any more then.
@interface NoticeMessageReceiver : NSObject {
@private
    MacObservation *observation;
}
- (instancetype)initWithObservation:(MacObservation *)anObservation;
- (void)forgetObservation;
- (void)setRootVCForSocketMessageTypeWithSender:(NSNotification *)sender;
@end

namespace {

NSDistributedNotificationCenter *center() {
    return static_cast<NSDistributedNotificationCenter *>([NSDistributedNotificationCenter defaultCenter]);
}

} // namespace

struct MacObservation : std::enable_shared_from_this<MacObservation> {
    RunLoop &runLoop;
    const void *observer;
    DistributedNotificationCenter::Handler handler;
    QString name;
    NoticeMessageReceiver *receiver = nil;

    MacObservation(
        RunLoop &loop, const void *who, DistributedNotificationCenter::Handler whatToDo, QString ofName)
        : runLoop(loop)
        , observer(who)
        , handler(std::move(whatToDo))
        , name(std::move(ofName)) { }
    ~MacObservation() { end(); }
    MacObservation(const MacObservation &) = delete;
    MacObservation &operator=(const MacObservation &) = delete;

    // Not by the constructor: what comes within this call needs the shared pointer.
    void begin() {
        @autoreleasepool {
            receiver = [[NoticeMessageReceiver alloc] initWithObservation:this];
            [center() addObserver:receiver
                          selector:@selector(setRootVCForSocketMessageTypeWithSender:)
                              name:stringOf(name)
                            object:nil
                suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
        }
    }

    // At the removal, though a handler that is being called may hold this for a while yet.
    void end() {
        if (!receiver)
            return;
        @autoreleasepool {
            [receiver forgetObservation];
            [center() removeObserver:receiver name:stringOf(name) object:nil];
            [receiver release];
            receiver = nil;
        }
    }

    void receive(NSNotification *sender) {
        Notification notification { textOf([sender name]), {}, std::nullopt };
        if ([[sender object] isKindOfClass:[NSString class]])
            notification.object = textOf([sender object]);
        if ([sender userInfo])
            notification.userInfo = FoundationValues::mapOf([sender userInfo]);
        // Weak: it is in force as long as the centre holds it.
        runLoop.async([weak = weak_from_this(), notification = std::move(notification)] {
            if (const auto observation = weak.lock())
                observation->handler(notification);
        });
    }
};

@implementation NoticeMessageReceiver

- (instancetype)initWithObservation:(MacObservation *)anObservation {
    self = [super init];
    if (self)
        observation = anObservation;
    return self;
}

- (void)forgetObservation {
    observation = nullptr;
}

- (void)setRootVCForSocketMessageTypeWithSender:(NSNotification *)sender {
    if (!observation)
        return;
    @autoreleasepool {
        observation->receive(sender);
    }
}

@end

// The name server for ports is marked as outdated, and there is no other one that tells a stranger whether a
// name is there.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

static bool registerPort(NSPort *port, NSString *name) {
    NSMessagePortNameServer *server = [NSMessagePortNameServer sharedInstance];
#ifdef GNUSTEP // has another word for it
    return [server registerPort:port forName:name] != NO;
#else
    return [server registerPort:port name:name] != NO;
#endif
}

struct MacListeningMark {
    explicit MacListeningMark(const QString &ofName)
        : name(ofName) {
        @autoreleasepool {
            port = [[NSMessagePort port] retain];
            isOurs = registerPort(port, stringOf(name));
        }
    }
    ~MacListeningMark() {
        @autoreleasepool {
            if (isOurs)
                [[NSMessagePortNameServer sharedInstance] removePortForName:stringOf(name)];
            [port invalidate];
            [port release];
        }
    }
    MacListeningMark(const MacListeningMark &) = delete;
    MacListeningMark &operator=(const MacListeningMark &) = delete;

    QString name;
    NSPort *port = nil;
    bool isOurs = false;
};

#pragma clang diagnostic pop

MacNotificationCenter::MacNotificationCenter(RunLoop &runLoop)
    : runLoop_(runLoop) { }

MacNotificationCenter::~MacNotificationCenter() {
    for (const auto &observation : observations_)
        observation->end();
}

void MacNotificationCenter::addObserver(const void *observer, Handler handler, const QString &name) {
    observations_.push_back(std::make_shared<MacObservation>(runLoop_, observer, std::move(handler), name));
    observations_.back()->begin();
}

void MacNotificationCenter::listen(const std::string &brandName, ListeningEvents events) {
    for (const auto &name : { brandName, std::string(Contract::agentName) }) {
        if (!name.empty())
            listeningMarks_.push_back(std::make_unique<MacListeningMark>(QString::fromStdString(name)));
    }
    if (events.begun)
        runLoop_.async(std::move(events.begun));
}

void MacNotificationCenter::giveBackNames() {
    listeningMarks_.clear();
}

void MacNotificationCenter::removeObserver(const void *observer, const QString &name) {
    std::erase_if(observations_, [&](const auto &each) {
        const bool isMeant = each->observer == observer && each->name == name;
        if (isMeant)
            each->end();
        return isMeant;
    });
}

void MacNotificationCenter::postNotificationName(const QString &name) {
    @autoreleasepool {
        [center() postNotificationName:stringOf(name) object:nil userInfo:nil deliverImmediately:YES];
    }
}

std::unique_ptr<SystemNotificationCenter> makeSystemNotificationCenter(
    RunLoop &runLoop, SystemNotificationCenter::ErrorReporter) {
    return std::make_unique<MacNotificationCenter>(runLoop);
}
