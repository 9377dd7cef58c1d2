#include "Client/AgentProgram.h"
#include "Client/NoticeClient.h"
#include "Contract/Bus.h"

#include <algorithm>

#import <Foundation/Foundation.h>
#include <unistd.h>

/// Counts the notifications that it is told of.
@interface NoticeAnswerReceiver : NSObject {
@public
    int count;
}
- (void)receive:(NSNotification *)notification;
@end

@implementation NoticeAnswerReceiver

- (void)receive:(NSNotification *)notification {
    (void)notification;
    ++count;
}

@end

namespace NoticeClient {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds betweenLooks(20);

// A notification and the end of who posted it come by different ways.
constexpr std::chrono::seconds longestBetweenAnswerAndEnd(1);

Clock::time_point deadlineOf(milliseconds timeout) {
    constexpr milliseconds longest = std::chrono::hours(24 * 365 * 10);
    return Clock::now() + std::min(timeout, longest);
}

/// Nil for what is not UTF-8.
NSString *stringOf(const std::string &text) {
    return [[[NSString alloc] initWithBytes:text.data() length:text.size()
                                   encoding:NSUTF8StringEncoding] autorelease];
}

/// Nil for a text that is none.
struct MakeObject {
    id operator()(bool value) const { return [NSNumber numberWithBool:value ? YES : NO]; }
    id operator()(const std::string &value) const { return isText(value) ? stringOf(value) : nil; }
    id operator()(const Data &value) const {
        return [NSData dataWithBytes:value.bytes.data() length:value.bytes.size()];
    }
};

Result<NSDictionary *> dictionaryOf(const Message &message) {
    NSMutableDictionary *objects = [NSMutableDictionary dictionaryWithCapacity:message.size()];
    for (const auto &[key, value] : message) {
        if (!isText(key))
            return Error { ErrorCode::InvalidArgument, "a key is not UTF-8 text" };
        const id object = std::visit(MakeObject(), value);
        if (!object)
            return Error { ErrorCode::InvalidArgument, key + ": not UTF-8 text" };
        [objects setObject:object forKey:stringOf(key)];
    }
    return static_cast<NSDictionary *>(objects);
}

NSDistributedNotificationCenter *center() {
    return static_cast<NSDistributedNotificationCenter *>([NSDistributedNotificationCenter defaultCenter]);
}

// Has the run loop hand on what came, and waits a moment for more.
void turn() {
    @autoreleasepool {
        constexpr double seconds = std::chrono::duration<double>(betweenLooks).count();
        NSDate *end = [NSDate dateWithTimeIntervalSinceNow:seconds];
        if (![[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:end])
            ::usleep(1000); // it has nothing to wait for
    }
}

// The agent names a message port as soon as it hears messages.
bool agentIsThere(const Brand &brand) {
    auto name = Contract::brandName(brand.logFolderName);
    if (name.empty())
        name = Contract::agentName;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    @autoreleasepool {
        return [[NSMessagePortNameServer sharedInstance] portForName:stringOf(name)] != nil;
    }
#pragma clang diagnostic pop
}

} // namespace

bool isText(std::string_view bytes) {
    @autoreleasepool {
        return bytes.find('\0') == std::string_view::npos && stringOf(std::string(bytes)) != nil;
    }
}

struct [[gnu::visibility("hidden")]] Agent::State {
    explicit State(Brand ofBrand)
        : brand(std::move(ofBrand)) { }
    ~State() {
        @autoreleasepool {
            if (receiver)
                [center() removeObserver:receiver];
            [receiver release];
        }
    }
    State(const State &) = delete;
    State &operator=(const State &) = delete;

    Brand brand;
    std::optional<AgentProgram> program;
    NoticeAnswerReceiver *receiver = nil; ///< there as soon as notifications are observed
    bool agentWasThere = false;

    bool seesAgent() {
        const bool isThere = agentIsThere(brand);
        agentWasThere = agentWasThere || isThere;
        return isThere;
    }

    bool takeReauthentication() {
        if (!receiver || receiver->count == 0)
            return false;
        --receiver->count;
        return true;
    }
};

Agent::Agent(std::unique_ptr<State> state)
    : state_(std::move(state)) { }

Agent::Agent(Agent &&) noexcept = default;
Agent &Agent::operator=(Agent &&) noexcept = default;
Agent::~Agent() = default;

Result<Agent> Agent::connect(Brand brand, milliseconds) {
    return Agent(std::make_unique<State>(std::move(brand)));
}

Result<bool> Agent::isListening() {
    return state_->seesAgent();
}

Result<void> Agent::start(const std::string &bundle) {
    auto program = AgentProgram::start(bundle);
    if (!program)
        return program.error();
    state_->program = std::move(*program);
    return {};
}

Result<void> Agent::waitUntilListening(milliseconds timeout) {
    const auto deadline = deadlineOf(timeout);
    for (;;) {
        if (state_->seesAgent())
            return {};
        if (const auto ending = state_->program ? state_->program->ending() : std::nullopt)
            return Error { ErrorCode::AgentEnded, "the agent " + *ending + " before it was ready" };
        if (Clock::now() >= deadline)
            return Error { ErrorCode::TimedOut, "no agent came in time" };
        turn();
    }
}

Result<void> Agent::ensureListening(milliseconds) {
    if (state_->seesAgent())
        return {};
    return Error { ErrorCode::NotInstalled, "no agent is there, and nothing that starts one by itself" };
}

Result<void> Agent::post(const Message &message) {
    const auto name = state_->brand.messageName();
    if (!isText(name))
        return Error { ErrorCode::InvalidArgument, "the message's name is not UTF-8 text" };
    if (!state_->seesAgent())
        return Error { ErrorCode::NotListening, "no agent is there" };
    @autoreleasepool {
        const auto userInfo = dictionaryOf(message);
        if (!userInfo)
            return userInfo.error();
        [center() postNotificationName:stringOf(name) object:nil userInfo:*userInfo deliverImmediately:YES];
    }
    return {};
}

Result<void> Agent::observeReauthentication() {
    if (state_->receiver)
        return {};
    const auto name = state_->brand.reauthenticationName();
    if (!isText(name))
        return Error { ErrorCode::InvalidArgument, "the vendor is not UTF-8 text" };
    @autoreleasepool {
        state_->receiver = [[NoticeAnswerReceiver alloc] init];
        [center() addObserver:state_->receiver
                      selector:@selector(receive:)
                          name:stringOf(name)
                        object:nil
            suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
    }
    state_->seesAgent();
    return {};
}

Result<void> Agent::waitForReauthentication(milliseconds timeout) {
    const auto deadline = deadlineOf(timeout);
    if (auto observed = observeReauthentication(); !observed)
        return observed;
    std::optional<Clock::time_point> goneSince;
    for (;;) {
        if (state_->takeReauthentication())
            return {};
        const auto now = Clock::now();
        if (!goneSince && state_->agentWasThere && !state_->seesAgent())
            goneSince = now;
        if (goneSince && now - *goneSince >= longestBetweenAnswerAndEnd)
            return Error { ErrorCode::AgentEnded, "the agent ended without a notification" };
        if (now >= deadline)
            return Error { ErrorCode::TimedOut, "no notification came in time" };
        turn();
    }
}

int Agent::descriptor() const {
    return -1; // what comes is brought by the run loop of the thread
}

} // namespace NoticeClient
