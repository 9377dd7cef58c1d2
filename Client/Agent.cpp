#include "Client/AgentProgram.h"
#include "Client/BusConnection.h"
#include "Contract/Bus.h"

#include <algorithm>
#include <string_view>

namespace NoticeClient {

namespace {

using std::chrono::milliseconds;
using Clock = BusConnection::Clock;

// How long the bus and the agent may take for an answer.
constexpr std::chrono::seconds patience(10);

BusMessage busCall(const char *method) {
    return methodCall(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method);
}

BusMessage busCall(const char *method, const std::string &text) {
    auto message = busCall(method);
    const char *bytes = text.c_str();
    require(dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &bytes, DBUS_TYPE_INVALID));
    return message;
}

// Of a match rule: a quote inside a quoted value ends the quotes, stands behind a backslash, and begins them
// again.
std::string quotedForRule(std::string_view value) {
    std::string result = "'";
    for (const char letter : value) {
        if (letter == '\'')
            result += "'\\''";
        else
            result += letter;
    }
    return result + '\'';
}

std::string ruleOfOwner(const std::string &name) {
    return "type='signal',sender='" DBUS_SERVICE_DBUS "',interface='" DBUS_INTERFACE_DBUS
           "',member='NameOwnerChanged',arg0="
        + quotedForRule(name);
}

std::string ruleOfNotification(const std::string &name) {
    return "type='signal',path='" + std::string(Contract::centerPath) + "',interface='"
        + std::string(Contract::centerInterface) + "',member='" + std::string(Contract::postedSignal)
        + "',arg0=" + quotedForRule(name);
}

bool startsWithArgument(DBusMessage *message, const std::string &text) {
    const char *first = nullptr;
    return dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &first, DBUS_TYPE_INVALID)
        && text == first;
}

// A time-out of years is one without an end.
Clock::time_point deadlineOf(milliseconds timeout) {
    constexpr milliseconds longest = std::chrono::hours(24 * 365 * 10);
    return Clock::now() + std::min(timeout, longest);
}

Error busLost(std::string why = "the session bus went away") {
    return { ErrorCode::BusLost, std::move(why) };
}

// Whom a call was meant for is not there any more, or went without answering it.
bool isGone(const BusError &error) {
    return error.is(DBUS_ERROR_SERVICE_UNKNOWN) || error.is(DBUS_ERROR_NAME_HAS_NO_OWNER)
        || error.is(DBUS_ERROR_NO_REPLY);
}

} // namespace

struct [[gnu::visibility("hidden")]] Agent::State {
    State(Brand itsBrand, BusConnection itsBus)
        : brand(std::move(itsBrand))
        , busName(Contract::brandName(brand.logFolderName))
        , bus(std::move(itsBus)) {
        if (busName.empty())
            busName = Contract::agentName;
    }

    Brand brand;
    std::string busName; ///< of the brand's agent
    BusConnection bus;
    std::optional<AgentProgram> program;

    // What has been heard on the bus.
    bool observesOwner = false;
    bool observesReauthentication = false;
    bool isOwned = false; ///< kept up to date from `observesOwner` on
    std::string listener; ///< the connection of the agent that is to answer
    bool listenerEnded = false;
    int reauthentications = 0; ///< not reported yet

    /// Asks the bus itself. BusLost, also for an answer that is an error.
    Result<BusMessage> ask(const BusMessage &question) {
        auto answer = bus.call(question, deadlineOf(patience));
        if (!answer)
            return busLost(answer.error().message);
        BusError error;
        if (dbus_set_error_from_message(error, answer->get()))
            return busLost("the session bus refuses a call: " + error.text());
        return answer;
    }

    Result<void> observe(const std::string &rule) {
        if (auto answer = ask(busCall("AddMatch", rule)); !answer)
            return answer.error();
        return {};
    }

    /// The connection that owns the agent's name; empty when there is none.
    Result<std::string> owner() {
        const auto answer = bus.call(busCall("GetNameOwner", busName), deadlineOf(patience));
        if (!answer)
            return busLost(answer.error().message);
        BusError error;
        const char *name = nullptr;
        if (!dbus_set_error_from_message(error, answer->get())
            && dbus_message_get_args(answer->get(), error, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID))
            return std::string(name);
        if (error.is(DBUS_ERROR_NAME_HAS_NO_OWNER))
            return std::string();
        return busLost("the session bus refuses a call: " + error.text());
    }

    /// From here on the end of that agent is heard.
    Result<void> setListener(const std::string &connection) {
        if (connection.empty() || connection == listener)
            return {};
        if (!listener.empty()) {
            if (auto removed = ask(busCall("RemoveMatch", ruleOfOwner(listener))); !removed)
                return removed.error();
        }
        listener = connection;
        listenerEnded = false;
        return observe(ruleOfOwner(listener));
    }

    void handle(DBusMessage * message) {
        if (dbus_message_is_signal(
                message, Contract::centerInterface.data(), Contract::postedSignal.data())) {
            if (observesReauthentication && startsWithArgument(message, brand.reauthenticationName()))
                ++reauthentications;
        } else if (dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged")
            && dbus_message_has_sender(message, DBUS_SERVICE_DBUS)) {
            handleOwner(message);
        }
    }

    void handleOwner(DBusMessage * message) {
        const char *name = nullptr;
        const char *oldOwner = nullptr;
        const char *newOwner = nullptr;
        if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &oldOwner,
                DBUS_TYPE_STRING, &newOwner, DBUS_TYPE_INVALID))
            return;
        if (name == busName)
            isOwned = *newOwner != '\0';
        else if (name == listener)
            listenerEnded = true;
    }

    void handleWhatCame() {
        while (const BusMessage message = bus.pop())
            handle(message.get());
    }

    /// Waits for what the condition asks for; false when the time ran out.
    template <class Condition>
    Result<bool> waitFor(const Condition &condition, Clock::time_point deadline) {
        for (bool isThere = true, isLast = false;;) {
            handleWhatCame();
            if (condition())
                return true;
            if (!isThere)
                return busLost();
            if (isLast)
                return false;
            const auto left = until(deadline);
            isLast = left == milliseconds::zero();
            isThere = bus.read(left);
        }
    }

    Error nobodyThere() const {
        return { ErrorCode::NotListening, "no agent is there that owns " + busName };
    }
};

Agent::Agent(std::unique_ptr<State> state)
    : state_(std::move(state)) { }

Agent::Agent(Agent &&) noexcept = default;
Agent &Agent::operator=(Agent &&) noexcept = default;
Agent::~Agent() = default;

Result<Agent> Agent::connect(Brand brand, milliseconds timeout) {
    auto bus = BusConnection::open(deadlineOf(timeout));
    if (!bus)
        return bus.error();
    return Agent(std::make_unique<State>(std::move(brand), std::move(*bus)));
}

Result<bool> Agent::isListening() {
    const auto owner = state_->owner();
    if (!owner)
        return owner.error();
    return !owner->empty();
}

Result<void> Agent::ensureListening(milliseconds timeout) {
    const auto isThere = isListening();
    if (!isThere)
        return isThere.error();
    if (*isThere)
        return {};
    const auto call = busCall("StartServiceByName", state_->busName);
    const dbus_uint32_t flags = 0;
    require(dbus_message_append_args(call.get(), DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID));
    const auto answer = state_->bus.call(call, deadlineOf(timeout));
    if (!answer && answer.error().code == ErrorCode::TimedOut)
        return Error { ErrorCode::TimedOut, "no agent came in time" };
    if (!answer)
        return answer.error();
    BusError error;
    if (!dbus_set_error_from_message(error, answer->get()))
        return {};
    if (error.is(DBUS_ERROR_SERVICE_UNKNOWN))
        return Error { ErrorCode::NotInstalled, "no agent is installed that owns " + state_->busName };
    if (error.is(DBUS_ERROR_SPAWN_CHILD_EXITED) || error.is(DBUS_ERROR_SPAWN_CHILD_SIGNALED))
        return Error { ErrorCode::AgentEnded, "the agent ended before it was ready: " + error.text() };
    return Error { ErrorCode::CannotStart, "the session bus cannot start the agent: " + error.text() };
}

Result<void> Agent::start(const std::string &bundle) {
    auto program = AgentProgram::start(bundle);
    if (!program)
        return program.error();
    state_->program = std::move(*program);
    return {};
}

Result<void> Agent::waitUntilListening(milliseconds timeout) {
    constexpr milliseconds betweenLooks(50);
    const auto deadline = deadlineOf(timeout);
    if (!state_->observesOwner) {
        if (auto observed = state_->observe(ruleOfOwner(state_->busName)); !observed)
            return observed;
        state_->observesOwner = true;
    }
    for (;;) {
        const auto ending = state_->program ? state_->program->ending() : std::nullopt;
        // Behind the look at the program: it ends when another one that owns the name came before it.
        const auto isThere = isListening();
        if (!isThere)
            return isThere.error();
        if (*isThere)
            return {};
        if (ending)
            return Error { ErrorCode::AgentEnded, "the agent " + *ending + " before it was ready" };
        if (Clock::now() >= deadline)
            return Error { ErrorCode::TimedOut, "no agent came in time" };
        state_->isOwned = false;
        const auto came = state_->waitFor([this] { return state_->isOwned; },
            state_->program ? std::min(deadline, Clock::now() + betweenLooks) : deadline);
        if (!came)
            return came.error();
    }
}

Result<void> Agent::post(const Message &message) {
    auto signal = postedSignalOf(message, state_->brand.messageName());
    if (!signal)
        return signal.error();
    const auto owner = state_->owner();
    if (!owner)
        return owner.error();
    if (owner->empty())
        return state_->nobodyThere();
    if (state_->observesReauthentication) {
        if (auto observed = state_->setListener(*owner); !observed)
            return observed;
    }
    const auto deadline = deadlineOf(patience);
    if (const auto sent = state_->bus.send(signal->get(), deadline); !sent)
        return busLost("the session bus did not take the message: " + sent.error().message);
    signal->reset();

    // The agent takes what comes in order: once it answers this, it has the message.
    const auto ping = methodCall(owner->c_str(), "/", DBUS_INTERFACE_PEER, "Ping");
    dbus_message_set_auto_start(ping.get(), FALSE);
    const auto answer = state_->bus.call(ping, deadline);
    if (!answer && answer.error().code == ErrorCode::TimedOut)
        return Error { ErrorCode::TimedOut, "the agent does not answer" };
    if (!answer)
        return busLost("the session bus did not take the message");
    BusError error;
    if (dbus_set_error_from_message(error, answer->get()) && isGone(error))
        return Error { ErrorCode::AgentEnded, "the agent ended before it could show the message" };

    // An agent whose notice is done gives its name back, and ends a second later with whatever it shows.
    const auto stillOwner = state_->owner();
    if (!stillOwner)
        return stillOwner.error();
    if (*stillOwner != *owner)
        return state_->nobodyThere();
    return {};
}

Result<void> Agent::observeReauthentication() {
    if (state_->observesReauthentication)
        return {};
    const auto name = state_->brand.reauthenticationName();
    if (!isText(name))
        return Error { ErrorCode::InvalidArgument, "the vendor is not UTF-8 text" };
    if (auto observed = state_->observe(ruleOfNotification(name)); !observed)
        return observed;
    state_->observesReauthentication = true;
    const auto owner = state_->owner();
    return owner ? state_->setListener(*owner) : owner.error();
}

Result<void> Agent::waitForReauthentication(milliseconds timeout) {
    const auto deadline = deadlineOf(timeout);
    if (auto observed = observeReauthentication(); !observed)
        return observed;
    const auto came = state_->waitFor(
        [this] { return state_->reauthentications > 0 || state_->listenerEnded; }, deadline);
    if (!came)
        return came.error();
    if (!*came)
        return Error { ErrorCode::TimedOut, "no notification came in time" };
    if (state_->reauthentications == 0)
        return Error { ErrorCode::AgentEnded, "the agent ended without a notification" };
    --state_->reauthentications;
    return {};
}

int Agent::descriptor() const {
    return state_->bus.descriptor();
}

} // namespace NoticeClient
