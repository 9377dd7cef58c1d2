#include "Client/SessionState.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace NoticeClient {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr auto program = "/Contents/Linux/NoticeAgent";

BusMessage callOf(const char *method) {
    BusMessage message(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method));
    require(message != nullptr);
    return message;
}

BusMessage callOf(const char *method, const char *text) {
    auto message = callOf(method);
    require(dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID));
    return message;
}

// A quote inside a quoted value ends the quotes, stands behind a backslash, and begins them again.
std::string quoted(std::string_view value) {
    std::string result = "'";
    for (const char letter : value) {
        if (letter == '\'')
            result += "'\\''";
        else
            result += letter;
    }
    return result + '\'';
}

bool startsWithArgument(DBusMessage *message, const std::string &text) {
    const char *first = nullptr;
    return dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &first, DBUS_TYPE_INVALID)
        && text == first;
}

milliseconds until(Clock::time_point deadline) {
    constexpr milliseconds longest = std::chrono::hours(1); // fits the system's integer
    return std::clamp(std::chrono::ceil<milliseconds>(deadline - Clock::now()), milliseconds(0), longest);
}

// A time-out of years is one without an end.
Clock::time_point deadlineOf(milliseconds timeout) {
    constexpr milliseconds longest = std::chrono::hours(24 * 365 * 10);
    return Clock::now() + std::min(timeout, longest);
}

Error busLost() {
    return { ErrorCode::BusLost, "the session bus went away" };
}

} // namespace

struct [[gnu::visibility("hidden")]] Agent::State {
    State(Session itsSession, Brand itsBrand, std::unique_ptr<BusConnection> itsBus)
        : session(std::move(itsSession))
        , brand(std::move(itsBrand))
        , bus(std::move(itsBus)) { }

    Session session;
    Brand brand;
    std::unique_ptr<BusConnection> bus;
    std::optional<ChildProcess> child;
    std::function<void()> handler;

    // What has been heard on the bus.
    bool observesOwner = false;
    bool observesReauthentication = false;
    enum class Presence { Unknown, There, Vanished } presence = Presence::Unknown;
    int reauthentications = 0; ///< not told yet

    Result<BusMessage> ask(const BusMessage &question) {
        return call(*bus, question.get(), [this](DBusMessage *message) { handle(message); });
    }

    Result<void> observe(const std::string &rule) {
        if (auto answer = ask(callOf("AddMatch", rule.c_str())); !answer)
            return answer.error();
        return {};
    }

    Result<void> observeOwner() {
        if (observesOwner)
            return {};
        auto observed
            = observe(std::string("type='signal',sender='" DBUS_SERVICE_DBUS
                                  "',interface='" DBUS_INTERFACE_DBUS "',member='NameOwnerChanged',arg0=")
                + quoted(agentName));
        observesOwner = static_cast<bool>(observed);
        return observed;
    }

    void handle(DBusMessage * message) {
        if (dbus_message_is_signal(message, centerInterface, postedSignal)) {
            const bool isOurs = dbus_message_has_sender(message, bus->uniqueName().c_str());
            if (observesReauthentication && !isOurs
                && startsWithArgument(message, brand.reauthenticationName()))
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
        if (dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &oldOwner,
                DBUS_TYPE_STRING, &newOwner, DBUS_TYPE_INVALID)
            && std::string_view(name) == agentName)
            presence = *newOwner ? Presence::There : Presence::Vanished;
    }

    void handleWhatCame() {
        while (const BusMessage message = bus->pop())
            handle(message.get());
    }

    /// Waits for what the condition asks for; false when the time ran out.
    template <class Condition>
    Result<bool> waitFor(const Condition &condition, Clock::time_point deadline) {
        for (bool isThere = true;;) {
            handleWhatCame();
            if (condition())
                return true;
            if (!isThere)
                return busLost();
            const auto left = until(deadline);
            if (left == milliseconds::zero())
                return false;
            isThere = bus->read(left);
        }
    }
};

Agent::Agent(std::unique_ptr<State> state)
    : state_(std::move(state)) { }

Agent::Agent(Agent &&) noexcept = default;
Agent &Agent::operator=(Agent &&) noexcept = default;
Agent::~Agent() = default;

Result<Agent> Agent::connect(const Session &session, Brand brand) {
    auto bus = session.state_->connect();
    if (!bus)
        return bus.error();
    return Agent(std::make_unique<State>(session, std::move(brand), std::move(*bus)));
}

Result<bool> Agent::isListening() {
    const auto answer = state_->ask(callOf("NameHasOwner", agentName));
    if (!answer)
        return answer.error();
    dbus_bool_t isOwned = FALSE;
    BusError error;
    if (!dbus_message_get_args(answer->get(), error, DBUS_TYPE_BOOLEAN, &isOwned, DBUS_TYPE_INVALID))
        return Error { ErrorCode::BusLost, error.text() };
    return isOwned != FALSE;
}

Result<void> Agent::start(const std::string &bundle) {
    const auto &session = *state_->session.state_;
    if (session.user && !session.hasDisplay())
        return Error { ErrorCode::NoDisplay, "no session of " + session.user->name + " has a display" };
    // The agent gets another current folder, and finds its bundle from the path it is started with.
    const auto path = bundle + program;
    const std::unique_ptr<char, decltype(&std::free)> absolute(::realpath(path.c_str(), nullptr), &std::free);
    if (!absolute)
        return Error { ErrorCode::CannotStart, path + ": " + std::generic_category().message(errno) };
    auto child = ChildProcess::start(absolute.get(), session.environment, session.user);
    if (!child)
        return child.error();
    state_->child = std::move(*child);
    return {};
}

Result<void> Agent::waitUntilListening(milliseconds timeout) {
    constexpr milliseconds betweenLooks(50);
    const auto deadline = deadlineOf(timeout);
    if (auto observed = state_->observeOwner(); !observed)
        return observed;
    const auto isListeningNow = isListening();
    if (!isListeningNow)
        return isListeningNow.error();
    state_->presence = *isListeningNow ? State::Presence::There : State::Presence::Unknown;
    for (;;) {
        const auto look = Clock::now() + betweenLooks;
        const auto came = state_->waitFor([this] { return state_->presence == State::Presence::There; },
            state_->child ? std::min(deadline, look) : deadline);
        if (!came)
            return came.error();
        if (*came)
            return {};
        const auto ending = state_->child ? state_->child->ending() : std::nullopt;
        if (ending)
            return Error { ErrorCode::AgentEnded, "the agent " + *ending + " before it was ready" };
        if (Clock::now() >= deadline)
            return Error { ErrorCode::TimedOut, "no agent came in time" };
    }
}

Result<void> Agent::ensureListening(const std::string &bundle, milliseconds timeout) {
    const auto isThere = isListening();
    if (!isThere)
        return isThere.error();
    if (*isThere)
        return {};
    if (auto started = start(bundle); !started)
        return started;
    return waitUntilListening(timeout);
}

Result<void> Agent::post(const Message &message) {
    auto signal = postedSignalOf(message, message.name.value_or(state_->brand.messageName()));
    if (!signal)
        return signal.error();
    if (!state_->bus->send(signal->get()))
        return busLost();
    signal->reset();

    // The bus works in order: once it answers this, it has taken the message, and not closed the connection
    // on it.
    const BusMessage ping(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_PEER, "Ping"));
    require(ping != nullptr);
    if (const auto answer = state_->ask(ping); !answer)
        return Error { ErrorCode::BusLost,
            "the session bus did not take the message: " + answer.error().message };
    return {};
}

Result<void> Agent::observeReauthentication() {
    if (state_->observesReauthentication)
        return {};
    const auto name = state_->brand.reauthenticationName();
    if (!isText(name))
        return Error { ErrorCode::InvalidArgument, "the vendor is not UTF-8 text" };
    if (auto observed = state_->observeOwner(); !observed)
        return observed;
    state_->observesReauthentication = true;
    return state_->observe(std::string("type='signal',path='") + centerPath + "',interface='"
        + centerInterface + "',member='" + postedSignal + "',arg0=" + quoted(name));
}

Result<void> Agent::waitForReauthentication(milliseconds timeout) {
    const auto deadline = deadlineOf(timeout);
    if (auto observed = observeReauthentication(); !observed)
        return observed;
    const auto came = state_->waitFor(
        [this] { return state_->reauthentications > 0 || state_->presence == State::Presence::Vanished; },
        deadline);
    if (!came)
        return came.error();
    if (!*came)
        return Error { ErrorCode::TimedOut, "no notification came in time" };
    if (state_->reauthentications == 0)
        return Error { ErrorCode::AgentEnded, "the agent ended without a notification" };
    --state_->reauthentications;
    return {};
}

void Agent::onReauthentication(std::function<void()> handler) {
    state_->handler = std::move(handler);
}

Result<void> Agent::processEvents(milliseconds timeout) {
    const auto deadline = deadlineOf(timeout);
    if (state_->child && state_->child->ending())
        state_->child.reset();
    for (bool isThere = true, isLast = false;;) {
        state_->handleWhatCame();
        while (state_->handler && state_->reauthentications > 0) {
            --state_->reauthentications;
            const auto handler = state_->handler; // it may put another in its place
            handler();
        }
        if (!isThere)
            return busLost();
        if (isLast)
            return {};
        const auto left = until(deadline);
        isLast = left == milliseconds::zero();
        isThere = state_->bus->read(left);
    }
}

int Agent::descriptor() const {
    return state_->bus->descriptor();
}

} // namespace NoticeClient
